#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "kernels/pixel_buffer.h"

namespace korin::kernels::test {

// What the samples of a test plane are like.
enum class Content {
  kFullRange,  // any value, for floats also huge ones
  kCamera,     // crowded around a background, with stars
  kHostile     // for floats NaN, infinities, -0 and values beyond every integer
};

template <typename T>
T SampleOf(Content content, std::mt19937& random) {
  using Limits = std::numeric_limits<T>;
  const std::uint64_t draw = (std::uint64_t{random()} << 32) | random();
  if (content == Content::kCamera) {
    const std::uint64_t value = draw % 97 == 0 ? draw % 60000 : 900 + draw % 61;
    if constexpr (std::is_floating_point_v<T>)
      return static_cast<T>(static_cast<double>(value) / 7.0);
    return static_cast<T>(value);
  }
  if constexpr (std::is_floating_point_v<T>) {
    if (content == Content::kHostile && draw % 3 == 0) {
      const T odd[] = {Limits::quiet_NaN(),
                       Limits::infinity(),
                       -Limits::infinity(),
                       T{0},
                       -T{0},
                       Limits::max(),
                       Limits::lowest(),
                       T(4294967295.5),
                       T(-2147483649.0),
                       Limits::denorm_min()};
      return odd[(draw >> 8) % std::size(odd)];
    }
    const double scale[] = {1.0, 300.0, 70000.0, 5.0e9};
    return static_cast<T>((static_cast<double>(draw >> 11) / 4503599627370496.0 - 1.0) *
                          scale[draw % 4]);
  } else {
    if (draw % 16 == 0) return draw % 32 == 0 ? Limits::min() : Limits::max();
    return static_cast<T>(draw >> 13);
  }
}

// A plane whose lines are `padding` samples apart from the next; the padding holds
// a pattern that no kernel may touch.
template <typename T>
struct Plane {
  Plane(std::int32_t planeWidth, std::int32_t planeLines, std::int32_t padding = 0)
      : width(planeWidth),
        lines(planeLines),
        stride(planeWidth + padding),
        samples(static_cast<std::size_t>(stride) * static_cast<std::size_t>(lines), T(77)) {}
  Plane(std::int32_t planeWidth, std::int32_t planeLines, std::int32_t padding, Content content,
        std::uint32_t seed)
      : Plane(planeWidth, planeLines, padding) {
    std::mt19937 random(seed);
    for (std::int32_t y = 0; y < lines; ++y) {
      for (std::int32_t x = 0; x < width; ++x) At(x, y) = SampleOf<T>(content, random);
    }
  }

  T& At(std::int32_t x, std::int32_t y) {
    return samples[static_cast<std::size_t>(y) * static_cast<std::size_t>(stride) +
                   static_cast<std::size_t>(x)];
  }
  const T& At(std::int32_t x, std::int32_t y) const { return const_cast<Plane*>(this)->At(x, y); }
  const T* Data() const { return samples.data(); }
  T* Data() { return samples.data(); }

  // For one pipeline call.
  PixelBuffer Describe() const { return PixelBuffer(samples.data(), width, lines, stride); }

  std::int32_t width, lines, stride;
  std::vector<T> samples;
};

// The same bytes; the first difference is told.
template <typename T>
testing::AssertionResult SameBits(const Plane<T>& got, const Plane<T>& wanted) {
  for (std::size_t i = 0; i < wanted.samples.size(); ++i) {
    if (std::memcmp(&got.samples[i], &wanted.samples[i], sizeof(T)) == 0) continue;
    return testing::AssertionFailure()
           << wanted.width << " x " << wanted.lines << ", sample " << i << " is " << +got.samples[i]
           << " instead of " << +wanted.samples[i];
  }
  return testing::AssertionSuccess();
}

// Bit for bit, except that any NaN equals any other.
inline bool SameDouble(double a, double b) {
  if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// Every width up to two strips of 64 and the odd samples after them; heights around
// the sizes of row groups.
inline std::vector<std::pair<std::int32_t, std::int32_t>> SmallShapes() {
  std::vector<std::pair<std::int32_t, std::int32_t>> shapes;
  const std::int32_t heights[] = {1, 3, 8, 21};
  for (std::int32_t width = 1; width <= 131; ++width) {
    shapes.emplace_back(width, heights[width % 4]);
  }
  return shapes;
}
// Shapes beyond the sizes from which rows go to the pool and tables are made.
inline std::vector<std::pair<std::int32_t, std::int32_t>> LargeShapes() {
  return {{1021, 37}, {61, 4300}, {1027, 259}};
}

}  // namespace korin::kernels::test
