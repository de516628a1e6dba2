#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/text.h"

// Values in and out of a copy of a mapping's bytes. Offsets are the caller's, inside
// the span; contents may be anything.
namespace korin::exchange {

template <typename T>
T GetValue(std::span<const std::byte> bytes, std::size_t offset) {
  static_assert(std::is_arithmetic_v<T>);
  T value;
  std::memcpy(&value, bytes.subspan(offset, sizeof value).data(), sizeof value);
  return value;
}

template <typename T>
void PutValue(std::span<std::byte> bytes, std::size_t offset, T value) {
  static_assert(std::is_arithmetic_v<T>);
  std::memcpy(bytes.subspan(offset, sizeof value).data(), &value, sizeof value);
}

inline bool GetFlag(std::span<const std::byte> bytes, std::size_t offset) {
  return GetValue<std::int32_t>(bytes, offset) != 0;
}

inline void PutFlag(std::span<std::byte> bytes, std::size_t offset, bool flag) {
  PutValue<std::int32_t>(bytes, offset, flag ? 1 : 0);
}

template <std::size_t Count>
std::array<double, Count> GetDoubles(std::span<const std::byte> bytes, std::size_t offset) {
  std::array<double, Count> values;
  std::memcpy(values.data(), bytes.subspan(offset, sizeof values).data(), sizeof values);
  return values;
}

inline void PutDoubles(std::span<std::byte> bytes, std::size_t offset,
                       std::span<const double> values) {
  std::memcpy(bytes.subspan(offset, values.size_bytes()).data(), values.data(),
              values.size_bytes());
}

// The text of a slot of `units` units, up to its end mark or its last unit.
inline std::wstring GetText(std::span<const std::byte> bytes, std::size_t offset,
                            std::size_t units) {
  const auto slot = bytes.subspan(offset, 2 * units);
  std::u16string text;
  for (std::size_t i = 0; i < units; ++i) {
    const auto unit = GetValue<std::uint16_t>(slot, 2 * i);
    if (unit == 0) break;
    text += static_cast<char16_t>(unit);
  }
  return platform::FromUtf16(text);
}

// Writes the text, cut to leave room for the end mark, and the end mark; the rest
// of the slot stays as it is.
inline void PutText(std::span<std::byte> bytes, std::size_t offset, std::size_t units,
                    std::wstring_view text) {
  std::u16string wire = platform::ToUtf16(text.substr(0, text.find(L'\0')), units - 1);
  wire += u'\0';
  std::memcpy(bytes.subspan(offset, 2 * units).data(), wire.data(), 2 * wire.size());
}

}  // namespace korin::exchange
