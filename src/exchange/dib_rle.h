#pragma once

#include <cstdint>
#include <span>

#include "korinimage/types.h"

namespace korin {

// Writes the pixels of a run-length encoded bitmap (bits: 8 or 4) as packed rows,
// bottom row first, `stride` bytes apart. `pixels` holds stride x height zero bytes
// at entry; pixels that the codes skip stay 0. Nothing is written past the end of a
// row or of the last row; codes that end early end the bitmap. bits x width / 8,
// rounded up, <= stride.
void ExpandRle(std::span<const BYTE> codes, int bits, std::int64_t width, std::int64_t height,
               std::int64_t stride, std::span<BYTE> pixels);

// Replaces a run-length encoded bitmap by a new block holding the same bitmap
// uncompressed; the old block is freed. Any other block is left as it is. 1 on
// success; 0, nothing changed, for a null or dead handle, a header that cannot be
// true and when memory is short.
int DecordRle(HDIB* dib) noexcept;

}  // namespace korin
