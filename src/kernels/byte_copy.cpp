#include "kernels/byte_copy.h"

#include <algorithm>
#include <cstring>

#include "kernels/parallel.h"
#include "platform/stream_copy.h"

namespace korin {
namespace {

// Large enough for what a step of the thread pool costs, small enough to be shared
// evenly.
constexpr std::int64_t kPiece = 512 << 10;

}  // namespace

void CopyOnThreads(const std::vector<CVmImage::BytesToMove>& moves, bool streamed) {
  std::vector<CVmImage::BytesToMove> pieces;
  for (const auto& [to, from, size] : moves) {
    for (std::int64_t at = 0; at < size; at += kPiece) {
      pieces.push_back({to + at, from + at, std::min(kPiece, size - at)});
    }
  }
  ParallelFor(static_cast<std::int64_t>(pieces.size()), [&](std::int64_t i) {
    const auto& [to, from, size] = pieces[static_cast<std::size_t>(i)];
    const auto bytes = static_cast<std::size_t>(size);
    streamed ? platform::StreamCopy(to, from, bytes)
             : static_cast<void>(std::memcpy(to, from, bytes));
  });
}

CVmImage::MoveBytes MoverFor(const CVmImage& store) {
  const std::int64_t bytes = store.GetBytesPerLine() * store.GetHeight() * store.GetPlanes();
  return
      [streamed = bytes >= kStreamedBytes](const auto& moves) { CopyOnThreads(moves, streamed); };
}

}  // namespace korin
