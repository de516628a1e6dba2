#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

// Whole pages of private, zeroed process memory.
namespace korin::platform {

// Beyond it the distance of two addresses does not fit: 2 GiB where they have 32 bits.
inline constexpr std::int64_t kLargestMapping = std::numeric_limits<std::ptrdiff_t>::max();

// Bytes of one page; a power of two.
std::int64_t PageSize();

// `size` bytes (> 0, a multiple of the page size) of readable and writable
// memory, all zero; null when the system refuses. Never kills the process later
// for having promised too much where the system can refuse instead.
void* MapPages(std::int64_t size);

// Gives a mapping back, whole. False when the system cannot (too many mappings):
// the memory then stays mapped and usable.
bool UnmapPages(void* address, std::int64_t size);

// Gives the physical memory of part of a mapping back; the part stays mapped and
// reads as zeros. False: nothing changed.
bool DiscardPages(void* address, std::int64_t size);

// Forbids (or allows again) every access to part of a mapping. For debug builds.
bool ProtectPages(void* address, std::int64_t size, bool accessible);

}  // namespace korin::platform
