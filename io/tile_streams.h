#pragma once

#include <cstdint>
#include <span>

// What a compressed stream really holds, found without trusting it. Each function
// is true when decoding the stream into `pixels` pixels stays inside it.
namespace korin {

using Bytes = std::span<const std::uint8_t>;

// Rice coding of integers of `bytesPixel` (1, 2 or 4) in groups of `group` pixels.
bool RiceStreamHolds(Bytes stream, std::int64_t pixels, int bytesPixel, std::int64_t group);

// PLIO run lists: 16-bit words in the byte order of the file.
bool PlioStreamHolds(Bytes stream);

// H-transform of nx x ny pixels (nx the slow axis of the stream). `wide`: decoded
// in 64-bit arithmetic.
bool HcompressStreamHolds(Bytes stream, std::int64_t nx, std::int64_t ny, int smooth, bool wide);

// Length of the unpacked gzip stream, or -1 when it is damaged or would exceed
// `limit` bytes.
std::int64_t GzipLength(Bytes stream, std::int64_t limit);

}  // namespace korin
