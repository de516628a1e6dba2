#pragma once

#include <cstdint>
#include <limits>
#include <optional>

namespace korin {

// Products and sums of sizes. Every size that comes from a caller, a header or a
// mapping goes through these before anything is allocated or addressed: an
// operand below zero or a result that does not fit gives no value.
[[nodiscard]] inline std::optional<std::int64_t> CheckedMul(std::int64_t a, std::int64_t b) {
  if (a < 0 || b < 0) return std::nullopt;
  if (a != 0 && b > std::numeric_limits<std::int64_t>::max() / a) return std::nullopt;
  return a * b;
}

template <typename... Rest>
[[nodiscard]] std::optional<std::int64_t> CheckedMul(std::int64_t a, std::int64_t b, Rest... rest) {
  const auto product = CheckedMul(a, b);
  if (!product) return std::nullopt;
  return CheckedMul(*product, static_cast<std::int64_t>(rest)...);
}

[[nodiscard]] inline std::optional<std::int64_t> CheckedAdd(std::int64_t a, std::int64_t b) {
  if (a < 0 || b < 0 || a > std::numeric_limits<std::int64_t>::max() - b) return std::nullopt;
  return a + b;
}

// Whole units of `unit` bytes that hold `bytes` bytes, rounded up; 0 for a
// non-positive argument.
[[nodiscard]] inline std::int64_t CeilDiv(std::int64_t bytes, std::int64_t unit) {
  if (bytes <= 0 || unit <= 0) return 0;
  return bytes / unit + (bytes % unit != 0 ? 1 : 0);
}

}  // namespace korin
