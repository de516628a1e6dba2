#pragma once

#include <cstdint>

namespace korin::test {

inline constexpr std::uint64_t kMiB = 1 << 20;
inline constexpr std::uint64_t kGiB = 1 << 30;

}  // namespace korin::test
