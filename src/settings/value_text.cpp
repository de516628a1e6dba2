#include "settings/value_text.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

#include "platform/unicode.h"

namespace korin::settings {

namespace {

namespace unicode = platform::unicode;

constexpr std::uint32_t kByteEscape = 0xDC00;  // + a byte that is no UTF-8

bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

std::string_view Trim(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

bool IsQuoted(std::string_view text) {
  return text.size() >= 2 && text.front() == '"' && text.back() == '"';
}

void AppendHex(std::string& out, char c) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  const auto byte = static_cast<unsigned char>(c);
  out += '%';
  out += digits[byte >> 4];
  out += digits[byte & 15];
}

// The byte that "%XX" at `at` stands for.
std::optional<char> HexByte(std::string_view text, std::size_t at) {
  unsigned value = 0;
  if (text[at] != '%' || text.size() - at < 3) return std::nullopt;
  const char* const last = text.data() + at + 3;
  const auto [end, error] = std::from_chars(text.data() + at + 1, last, value, 16);
  if (error != std::errc() || end != last) return std::nullopt;
  return static_cast<char>(static_cast<unsigned char>(value));
}

// Wide text as bytes: UTF-8, and the byte itself for its escape.
std::string ToBytes(std::wstring_view text, bool& plain) {
  std::string bytes;
  for (std::size_t at = 0; at < text.size();) {
    const std::uint32_t c = unicode::TakeUnits(text, at);
    if (c > kByteEscape + 0x7F && c <= kByteEscape + 0xFF) {
      bytes += static_cast<char>(static_cast<unsigned char>(c - kByteEscape));
      plain = false;
    } else {
      unicode::AppendUtf8(bytes, unicode::IsScalar(c) ? c : U'?');
    }
  }
  return bytes;
}

// A number without blanks and without a plus sign, which from_chars does not know.
std::string_view Number(std::string_view text) {
  text = Trim(text);
  if (IsQuoted(text)) text = Trim(text.substr(1, text.size() - 2));
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  return text;
}

}  // namespace

std::string EncodeSection(std::string_view name) {
  constexpr std::string_view special = "=[];#%";
  std::string out;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const bool atEnd = i == 0 || i == name.size() - 1;
    if (IsControl(name[i]) || special.find(name[i]) != special.npos ||
        (atEnd && IsBlank(name[i]))) {
      AppendHex(out, name[i]);
    } else {
      out += name[i];
    }
  }
  return out;
}

std::string EncodeKey(std::string_view name) { return name.empty() ? "%" : EncodeSection(name); }

std::string EncodeValue(std::wstring_view value) {
  bool plain = !value.empty();  // written visibly
  const std::string bytes = ToBytes(value, plain);
  for (const char c : bytes) plain = plain && !IsControl(c);
  if (plain && !IsQuoted(bytes) && Trim(bytes).size() == bytes.size()) return bytes;

  std::string out = "\"";
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t begin = at;
    if (!unicode::TakeUtf8(bytes, at)) ++at;
    const std::string_view sequence = std::string_view(bytes).substr(begin, at - begin);
    const auto first = static_cast<unsigned char>(sequence[0]);
    const bool broken = sequence.size() == 1 && first >= 0x80;
    if (broken || IsControl(sequence[0]) || sequence[0] == '%') {
      AppendHex(out, sequence[0]);
    } else {
      out += sequence;
    }
  }
  return out + '"';
}

std::wstring DecodeValue(std::string_view stored) {
  std::string unquoted;
  if (IsQuoted(stored)) {
    stored = stored.substr(1, stored.size() - 2);
    for (std::size_t at = 0; at < stored.size(); ++at) {
      const auto byte = HexByte(stored, at);
      unquoted += byte.value_or(stored[at]);
      if (byte) at += 2;
    }
    stored = unquoted;
  }
  std::wstring out;
  for (std::size_t at = 0; at < stored.size();) {
    if (const auto scalar = unicode::TakeUtf8(stored, at)) {
      unicode::AppendUnits(out, *scalar);
    } else {
      out += static_cast<wchar_t>(kByteEscape + static_cast<unsigned char>(stored[at++]));
    }
  }
  return out;
}

std::optional<std::int64_t> ParseInteger(std::string_view stored) {
  const std::string_view text = Number(stored);
  const char* const last = text.data() + text.size();
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), last, value);
  if (text.empty() || end != last) return std::nullopt;
  if (error == std::errc::result_out_of_range) {
    using Limits = std::numeric_limits<std::int64_t>;
    return text.front() == '-' ? Limits::min() : Limits::max();
  }
  return error == std::errc() ? std::optional(value) : std::nullopt;
}

std::optional<double> ParseDouble(std::string_view stored) {
  const std::string_view text = Number(stored);
  const char* const last = text.data() + text.size();
  double value = 0.0;
  const auto [end, error] = std::from_chars(text.data(), last, value);
  if (text.empty() || error != std::errc() || end != last || !std::isfinite(value)) {
    return std::nullopt;
  }
  return value;
}

std::optional<bool> ParseBool(std::string_view stored) {
  std::string word(Number(stored));
  for (char& c : word) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
  if (word == "1" || word == "true" || word == "yes" || word == "on") return true;
  if (word == "0" || word == "false" || word == "no" || word == "off") return false;
  return std::nullopt;
}

}  // namespace korin::settings
