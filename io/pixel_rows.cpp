#include "pixel_rows.h"

#include <algorithm>
#include <string>

#include "korinimage/exceptions.h"

namespace korin {

namespace {

constexpr std::int64_t kStepBytes = 1 << 20;

}  // namespace

std::int64_t RowsPerStep(std::int64_t bytesPerLine) {
  return std::max<std::int64_t>(1, kStepBytes / std::max<std::int64_t>(1, bytesPerLine));
}

void ForRowRuns(CImage& image, std::int64_t plane, std::int64_t y, std::int64_t rows,
                std::int64_t step, BlockIntent intent,
                const std::function<void(BYTE*, std::int64_t, std::int64_t)>& take) {
  CVmImage& store = *image.Store();
  const std::int64_t end = y + rows;
  while (y < end) {
    const CVmImage::LineRun run = store.GetLineRun(plane, y);
    // Overwrite is a promise about the whole block.
    BlockIntent actual = intent;
    if (intent == BlockIntent::Overwrite &&
        (run.firstLine != 0 || run.lines != store.GetBlockLineCount(run.block) ||
         run.lines > end - y)) {
      actual = BlockIntent::Write;
    }
    const BlockGuard guard = store.RequireBlock(run.block, actual, actual != BlockIntent::Read);
    BYTE* bytes = guard.Address() + run.firstLine * store.GetBytesPerLine();
    const std::int64_t runEnd = std::min(end, y + run.lines);
    while (y < runEnd) {
      const std::int64_t count = std::min(step, runEnd - y);
      take(bytes, y, count);
      bytes += count * store.GetBytesPerLine();
      y += count;
    }
  }
}

void RequirePixels(CImage& image) {
  const CVmImage* store = image.Store();
  if (store == nullptr || store->VmManager() == nullptr) throw CVmManagerHandleDeletedError();
  if (store->GetWidth() != image.GetWidth() || store->GetHeight() != image.GetHeight() ||
      store->GetPlanes() != image.GetPlanes() || store->GetBytesPixel() != image.GetBytesPixel()) {
    throw CVmMemoryAllocationError(
        "the image's type and size no longer describe its pixels; allocate it anew first");
  }
}

}  // namespace korin
