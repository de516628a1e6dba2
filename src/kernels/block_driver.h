#pragma once

#include <cstdint>
#include <functional>

#include "korinimage/scoped_progress.h"
#include "korinimage/vm_image.h"

namespace korin {

// Adjacent lines of a source block and of the destination block of the same index.
struct BlockPiece {
  const BYTE* source = nullptr;
  BYTE* destination = nullptr;
  std::int64_t width = 0;  // pixels
  std::int64_t lines = 0;
  std::int64_t plane = 0;  // of the first line
};

// Runs `kernel` over all blocks of two stores of equal layout, one block after
// another, on the calling thread; each step is reported before its work. With
// `cutAtPlanes` a block is handed over plane by plane. False, with the remaining
// blocks untouched, when the layouts differ (then nothing is written), a block
// cannot be brought into memory or a kernel fails. No blocks: true.
[[nodiscard]] bool RunBlockDriver(CVmImage& destination, CVmImage& source, ScopedProgress& progress,
                                  bool cutAtPlanes,
                                  const std::function<bool(const BlockPiece&)>& kernel);

// True when the driver can run over the two stores.
[[nodiscard]] bool HaveEqualLayout(const CVmImage& a, const CVmImage& b);

}  // namespace korin
