#include "platform/text.h"

#include "platform/unicode.h"

namespace korin::platform {

namespace unicode {

void AppendUtf8(std::string& out, std::uint32_t scalar) {
  const auto byte = [](std::uint32_t value) { return static_cast<char>(value & 0xFF); };
  const auto trail = [&](unsigned shift) { return byte(0x80 | ((scalar >> shift) & 0x3F)); };
  if (scalar < 0x80) {
    out += byte(scalar);
  } else if (scalar < 0x800) {
    out += byte(0xC0 | (scalar >> 6));
    out += trail(0);
  } else if (scalar < 0x10000) {
    out += byte(0xE0 | (scalar >> 12));
    out += trail(6);
    out += trail(0);
  } else {
    out += byte(0xF0 | (scalar >> 18));
    out += trail(12);
    out += trail(6);
    out += trail(0);
  }
}

std::optional<std::uint32_t> TakeUtf8(std::string_view text, std::size_t& at) {
  const std::uint32_t lead = static_cast<unsigned char>(text[at]);
  if (lead < 0x80) {
    ++at;
    return lead;
  }
  // Smallest value of each length: anything below it is an overlong form.
  static constexpr std::uint32_t kSmallest[] = {0x80, 0x800, 0x10000};
  std::size_t trails = 0;
  std::uint32_t value = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    trails = 1;
    value = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    trails = 2;
    value = lead & 0x0F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    trails = 3;
    value = lead & 0x07;
  } else {
    return std::nullopt;
  }
  if (text.size() - at <= trails) return std::nullopt;
  for (std::size_t i = 1; i <= trails; ++i) {
    const std::uint32_t next = static_cast<unsigned char>(text[at + i]);
    if ((next & 0xC0) != 0x80) return std::nullopt;
    value = (value << 6) | (next & 0x3F);
  }
  if (value < kSmallest[trails - 1] || !IsScalar(value)) return std::nullopt;
  at += trails + 1;
  return value;
}

}  // namespace unicode

std::string ToUtf8(std::wstring_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const std::uint32_t c = unicode::TakeUnits(text, at);
    unicode::AppendUtf8(out, unicode::IsScalar(c) ? c : U'?');
  }
  return out;
}

std::wstring FromUtf8(std::string_view text) {
  std::wstring out;
  out.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const auto scalar = unicode::TakeUtf8(text, at);
    if (!scalar) ++at;
    unicode::AppendUnits(out, scalar.value_or(unicode::kReplacement));
  }
  return out;
}

std::u16string ToUtf16(std::wstring_view text, std::size_t maxUnits) {
  std::u16string out;
  for (std::size_t at = 0; at < text.size();) {
    const std::uint32_t c = unicode::TakeUnits(text, at);
    const std::uint32_t scalar = unicode::IsScalar(c) ? c : unicode::kReplacement;
    if (maxUnits - out.size() < (scalar > 0xFFFF ? 2U : 1U)) break;
    unicode::AppendUnits(out, scalar);
  }
  return out;
}

std::wstring FromUtf16(std::u16string_view units) {
  std::wstring out;
  out.reserve(units.size());
  for (std::size_t at = 0; at < units.size();) {
    const std::uint32_t c = unicode::TakeUnits(units, at);
    unicode::AppendUnits(out, unicode::IsScalar(c) ? c : unicode::kReplacement);
  }
  return out;
}

}  // namespace korin::platform
