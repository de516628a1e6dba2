#include "kernels/block_driver.h"

#include <algorithm>

namespace korin {

bool HaveEqualLayout(const CVmImage& a, const CVmImage& b) {
  return a.GetBlockCount() == b.GetBlockCount() && a.GetLinesPerBlock() == b.GetLinesPerBlock() &&
         a.GetWidth() == b.GetWidth() && a.GetBlockShape() == b.GetBlockShape();
}

bool RunBlockDriver(CVmImage& destination, CVmImage& source, ScopedProgress& progress,
                    bool cutAtPlanes, const std::function<bool(const BlockPiece&)>& kernel) {
  if (!HaveEqualLayout(destination, source)) return false;
  const std::int64_t count = source.GetBlockCount();
  const std::int64_t height = source.GetHeight();
  for (std::int64_t block = 0; block < count; ++block) {
    // The destination is asked for first and its flag says "contents not needed",
    // the source's "needed"; the intents are what keeps written pixels.
    const BlockGuard to = destination.PinBlock(block, BlockIntent::Overwrite, false);
    if (!to) return false;
    const BlockGuard from = source.PinBlock(block, BlockIntent::Read, true);
    if (!from) return false;
    progress.Step(block);
    // The last block may hold fewer lines than its shape says.
    const std::int64_t lines = source.GetBlockLineCount(block);
    const std::int64_t firstLine = block * source.GetLinesPerBlock();
    for (std::int64_t done = 0; done < lines;) {
      const std::int64_t line = firstLine + done;
      const std::int64_t plane = line / height;
      const std::int64_t piece =
          cutAtPlanes ? std::min(lines - done, (plane + 1) * height - line) : lines - done;
      if (!kernel({from.Address() + done * source.GetBytesPerLine(),
                   to.Address() + done * destination.GetBytesPerLine(), source.GetWidth(), piece,
                   plane})) {
        return false;
      }
      done += piece;
    }
  }
  return true;
}

}  // namespace korin
