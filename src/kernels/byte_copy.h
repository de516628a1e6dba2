#pragma once

#include <cstdint>
#include <vector>

#include "korinimage/vm_image.h"

namespace korin {

// Copies from this size on go past the caches.
inline constexpr std::int64_t kStreamedBytes = std::int64_t{8} << 20;

// Copies on the kernels' threads; no area overlaps another. `streamed`: past the
// caches, for parts of something large.
void CopyOnThreads(const std::vector<CVmImage::BytesToMove>& moves, bool streamed);

// For CVmImage::CopyImage of a store: its bytes move on the kernels' threads.
CVmImage::MoveBytes MoverFor(const CVmImage& store);

}  // namespace korin
