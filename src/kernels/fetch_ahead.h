#pragma once

#include <cstdint>

namespace korin::kernels {

inline constexpr std::int64_t kCacheLine = 64;

// For a loop that reads memory from end to end, once per cache line: asks for what it
// will read later. The processor itself stops at the end of a page. Where that is not
// the caller's memory nothing happens. Static, so that files for different instruction
// sets share no code.
static inline void FetchAhead(const void* at) {
  constexpr std::uintptr_t kAhead = 4096;
  __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<std::uintptr_t>(at) + kAhead));
}

}  // namespace korin::kernels
