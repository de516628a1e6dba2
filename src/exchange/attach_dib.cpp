// Taking over a packed bitmap as an image.
#include <algorithm>
#include <cstring>
#include <new>
#include <optional>
#include <vector>

#include "exchange/dib_bitmap.h"
#include "exchange/dib_handle.h"
#include "exchange/dib_pixels.h"
#include "exchange/dib_rle.h"
#include "kernels/row_batch.h"
#include "korinimage/exceptions.h"
#include "korinimage/image.h"
#include "korinimage/progress_win.h"
#include "platform/process.h"

namespace {

using korin::DibBitmap;
using korin::DibChannel;
using korin::DibHandle;
using korin::DibLock;

// Bytes of one plane that are converted together: enough for all threads, little
// enough that the rows are still in the caches when the next plane wants them.
constexpr std::int64_t kBandBytes = std::int64_t{1} << 20;

// A copy of the caller's block, uncompressed; a null handle when that is not possible.
void CopyAndExpand(HDIB dib, DibHandle& copy) {
  const DibLock source(dib);
  if (source.Bytes().empty()) return;
  DibHandle made(korin::AllocGlobalMemory(static_cast<std::int64_t>(source.Bytes().size())));
  {
    const DibLock destination(made.Get());
    if (destination.Bytes().size() < source.Bytes().size()) return;
    std::memcpy(destination.Bytes().data(), source.Bytes().data(), source.Bytes().size());
  }
  if (korin::DecordRle(made.InPlace()) != 0) *copy.InPlace() = made.Release();
}

// Reports rows to a sink that has already seen the store's allocation reach 100, and
// ends the operation on every way out.
class RowReports {
 public:
  RowReports(CImage::ProgressPtr progress, std::int64_t rows)
      : m_progress(std::move(progress)), m_rows(rows) {}
  RowReports(const RowReports&) = delete;
  RowReports& operator=(const RowReports&) = delete;
  ~RowReports() {
    try {
      Finish();
    } catch (...) {  // another exception may be passing
    }
  }

  void Row(std::int64_t y) {
    if (!m_progress) return;
    const auto percent = static_cast<int>(100 * (y + 1) / m_rows);
    if (percent == m_last) return;
    m_last = percent;
    m_progress->update(percent);
  }

  void Finish() {
    if (const auto progress = std::exchange(m_progress, nullptr)) progress->finalize();
  }

 private:
  CImage::ProgressPtr m_progress;
  std::int64_t m_rows;
  int m_last = 100;
};

// How many rows from y on are converted plane after plane. When the blocks of all
// planes find no room side by side, whole blocks at a time: each is then brought in
// once.
std::int64_t BandRows(const CVmImage& store, std::int64_t y) {
  const std::int64_t run = store.GetLineRun(0, y).lines;
  const auto manager = store.VmManager();
  if (!manager) throw korin::CVmManagerHandleDeletedError();
  const std::int64_t unit = std::max<std::int64_t>(manager->GetBlockSize(), 1);
  const std::int64_t blockBytes = store.GetLinesPerBlock() * store.GetBytesPerLine();
  const std::int64_t perBlock = (blockBytes + unit - 1) / unit;
  const std::int64_t blocks = std::min(store.GetBlockCount(), store.GetPlanes());
  if (blocks > 1 && perBlock * blocks > manager->GetComfortableBlocks()) return run;
  const std::int64_t bandRows =
      std::max<std::int64_t>(kBandBytes / std::max<std::int64_t>(store.GetBytesPerLine(), 1), 1);
  return std::min(bandRows, store.GetHeight() - y);
}

void ConvertPixels(const DibBitmap& bitmap, CVmImage& store, RowReports& reports) {
  std::vector<korin::DibChannelReader> readers;
  if (store.GetPlanes() == 1) {
    readers.emplace_back(bitmap, DibChannel::Grey);
  } else {
    for (const auto channel : {DibChannel::Red, DibChannel::Green, DibChannel::Blue}) {
      readers.emplace_back(bitmap, channel);
    }
  }
  const std::int64_t bytesPerLine = store.GetBytesPerLine();
  for (std::int64_t y = 0; y < store.GetHeight();) {
    const std::int64_t end = y + BandRows(store, y);
    for (std::int64_t row = y; row < end; ++row) reports.Row(row);
    for (std::int64_t plane = 0; plane < store.GetPlanes(); ++plane) {
      const auto& reader = readers[static_cast<std::size_t>(plane)];
      for (std::int64_t first = y; first < end;) {
        const korin::RowBatch batch(store, plane, first, end - first, korin::BlockIntent::Overwrite,
                                    true);
        korin::ParallelStretches(
            batch, bytesPerLine, [&](BYTE* rows, std::int64_t stretchY, std::int64_t lines) {
              for (std::int64_t line = 0; line < lines; ++line) {
                reader.ReadRow(bitmap.Row(stretchY + line), rows + line * bytesPerLine);
              }
            });
        first += batch.RowCount();
      }
    }
    y = end;
  }
}

}  // namespace

bool CImage::AttachDIB(const ManagerPtr& manager, HDIB dib, const ProgressPtr& progress) try {
  DibHandle copy(nullptr);
  CopyAndExpand(dib, copy);
  const DibLock lock(copy.Get());
  const auto bitmap = DibBitmap::Open(lock.Bytes());
  if (!bitmap) return false;

  const ManagerPtr used = manager ? manager : VmManager();
  if (!used) throw korin::CVmManagerHandleDeletedError();

  // Everything that may fail is made beside this image. What it replaces comes back
  // when the sink throws at the very end.
  const korin::DibHeader& header = bitmap->Header();
  const auto width = static_cast<int>(header.width);
  const auto height = static_cast<int>(header.height);
  const int planes = korin::HasColor(*bitmap) ? 3 : 1;
  CImage made;
  made.m_pVmImage = std::make_unique<CVmImage>(used, 8, width, height, planes, progress);
  RowReports reports(progress, height);
  ConvertPixels(*bitmap, *made.m_pVmImage, reports);

  made.m_levelMin.assign(static_cast<std::size_t>(planes), 0.0);
  made.m_levelMax.assign(static_cast<std::size_t>(planes), 255.0);
  made.m_levelRange.assign(static_cast<std::size_t>(planes), 255.0);
  made.m_cullRandom = m_cullRandom;
  made.CreateHistogramCull(width, height);
  reports.Finish();

  m_pVmImage = std::move(made.m_pVmImage);
  m_BitsPixel = DataTypeInt8;
  m_signed = false;
  m_nDimension = planes == 1 ? 2 : 3;
  m_axes = {width, height, planes};
  m_bscale = 1.0;
  m_bzero = 0.0;
  m_orgWidth = width;
  m_orgHeight = header.storedHeight;
  m_levelMin = std::move(made.m_levelMin);
  m_levelMax = std::move(made.m_levelMax);
  m_levelRange = std::move(made.m_levelRange);
  m_ownLevel = true;
  m_cullRandom = made.m_cullRandom;
  m_cullX = std::move(made.m_cullX);
  m_cullY = std::move(made.m_cullY);
  return true;
} catch (const std::bad_alloc&) {
  korin::platform::WriteErrorLine("m_pVmImage is nullptr");
  return false;
}

bool CImage::AttachDIB(const ManagerPtr& manager, HDIB dib, HWND window, const wchar_t* caption) {
  return AttachDIB(manager, dib, korin::MakeWindowProgress(window, caption));
}
