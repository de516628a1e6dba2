#pragma once

#include <cstdint>
#include <functional>

#include "korinimage/vm_image.h"

namespace korin {

// Adjacent lines from row `y` on.
using ReadStretch = std::function<void(const BYTE* rows, std::int64_t y, std::int64_t lines)>;

// Runs `body` over the first `height` rows of a plane, for an image part of which lies in
// the swap file. What is in memory is used where it lies; of the rest each thread reads the
// piece it works on into a buffer of its own, of a quarter of a megabyte at most, so that nothing
// is brought in and nothing evicted. Only what cannot be read so is brought in, block after block,
// by the calling thread. `body` runs on any thread and in any order, and again, on the calling
// thread, for rows that were read while they changed their place. Throws
// korin::CVmMemoryAllocationError when a block cannot be had, korin::CVmManagerHandleDeletedError.
void ForEachPagedStretch(CVmImage& store, std::int64_t plane, std::int64_t height,
                         const ReadStretch& body);

}  // namespace korin
