#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

// Single code points in and out of UTF-8, UTF-16 and wide text: what text.cpp and
// the systems' text files share.
namespace korin::platform::unicode {

constexpr bool IsHighSurrogate(std::uint32_t c) { return c >= 0xD800 && c <= 0xDBFF; }
constexpr bool IsLowSurrogate(std::uint32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }
constexpr bool IsScalar(std::uint32_t c) { return c < 0xD800 || (c > 0xDFFF && c <= 0x10FFFF); }

constexpr char32_t kReplacement = 0xFFFD;

// The unit at `text[at]` or the pair that begins there; `at` moves behind it. The
// value need not be a scalar: callers choose what stands for one that is not.
template <typename Unit>
std::uint32_t TakeUnits(std::basic_string_view<Unit> text, std::size_t& at) {
  const auto unit = [&](std::size_t i) {
    return static_cast<std::uint32_t>(static_cast<std::make_unsigned_t<Unit>>(text[i]));
  };
  const std::uint32_t first = unit(at++);
  if (!IsHighSurrogate(first) || at == text.size() || !IsLowSurrogate(unit(at))) return first;
  return 0x10000 + ((first - 0xD800) << 10) + (unit(at++) - 0xDC00);
}

// Appends a scalar as one or two units, as the width of Unit asks for.
template <typename Unit>
void AppendUnits(std::basic_string<Unit>& out, std::uint32_t scalar) {
  if (sizeof(Unit) == 2 && scalar > 0xFFFF) {
    out += static_cast<Unit>(0xD800 + ((scalar - 0x10000) >> 10));
    out += static_cast<Unit>(0xDC00 + ((scalar - 0x10000) & 0x3FF));
  } else {
    out += static_cast<Unit>(scalar);
  }
}

void AppendUtf8(std::string& out, std::uint32_t scalar);

// The scalar whose well-formed sequence begins at `text[at]`; `at` moves behind
// it. No value, and `at` unmoved, when none begins there.
std::optional<std::uint32_t> TakeUtf8(std::string_view text, std::size_t& at);

}  // namespace korin::platform::unicode
