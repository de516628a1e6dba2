#include "kernels/byte_copy.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "kernels/parallel.h"
#include "platform/stream_copy.h"

namespace korin {
namespace {

// Destinations are shared out by stretches of this size: threads that write fresh memory
// close to each other would each have the system clear the same large page.
constexpr std::uintptr_t kFrame = 2 << 20;

std::uintptr_t FrameOf(const BYTE* address) {
  return reinterpret_cast<std::uintptr_t>(address) / kFrame;
}

}  // namespace

void CopyOnThreads(const std::vector<CVmImage::BytesToMove>& moves, bool streamed) {
  std::vector<CVmImage::BytesToMove> pieces;
  std::vector<std::size_t> tasks;  // the first piece of each
  for (auto [to, from, size] : moves) {
    while (size > 0) {
      if (pieces.empty() || FrameOf(pieces.back().to) != FrameOf(to)) {
        tasks.push_back(pieces.size());
      }
      const auto left = kFrame - reinterpret_cast<std::uintptr_t>(to) % kFrame;
      const std::int64_t now = std::min(size, static_cast<std::int64_t>(left));
      pieces.push_back({to, from, now});
      to += now;
      from += now;
      size -= now;
    }
  }
  tasks.push_back(pieces.size());
  ParallelFor(static_cast<std::int64_t>(tasks.size()) - 1, [&](std::int64_t task) {
    const auto number = static_cast<std::size_t>(task);
    for (std::size_t i = tasks[number]; i < tasks[number + 1]; ++i) {
      const auto& [to, from, size] = pieces[i];
      const auto bytes = static_cast<std::size_t>(size);
      streamed ? platform::StreamCopy(to, from, bytes)
               : static_cast<void>(std::memcpy(to, from, bytes));
    }
  });
}

CVmImage::MoveBytes MoverFor(const CVmImage& store) {
  const std::int64_t bytes = store.GetBytesPerLine() * store.GetHeight() * store.GetPlanes();
  return
      [streamed = bytes >= kStreamedBytes](const auto& moves) { CopyOnThreads(moves, streamed); };
}

}  // namespace korin
