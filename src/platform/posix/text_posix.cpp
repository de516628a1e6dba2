#include <algorithm>

#include "platform/text.h"
#include "platform/unicode.h"

namespace korin::platform {

namespace {

constexpr std::uint32_t kEscape = 0xDC00;  // + a byte from 0x80 to 0xFF

}  // namespace

// The code page is always UTF-8 here, whatever the locale of the process: cards
// must not depend on it.
std::wstring CutToColumns(std::wstring_view text, int bytes) {
  if (bytes <= 0) return {};
  const auto limit = static_cast<std::size_t>(bytes);
  std::string kept;
  for (std::size_t at = 0; at < text.size() && kept.size() < limit;) {
    const std::uint32_t c = unicode::TakeUnits(text, at);
    const std::size_t whole = kept.size();
    unicode::AppendUtf8(kept, unicode::IsScalar(c) ? c : U'?');
    if (kept.size() > limit) {
      kept.resize(whole);
      break;
    }
  }
  return FromUtf8(kept);
}

std::wstring PathToWide(const std::filesystem::path& path) {
  const std::string_view native = path.native();
  std::wstring out;
  out.reserve(native.size());
  for (std::size_t at = 0; at < native.size();) {
    if (const auto scalar = unicode::TakeUtf8(native, at)) {
      unicode::AppendUnits(out, *scalar);
    } else {
      out += static_cast<wchar_t>(kEscape + static_cast<unsigned char>(native[at++]));
    }
  }
  return out;
}

std::filesystem::path PathOf(std::string_view text) { return text; }

std::string NarrowName(const std::filesystem::path& file) { return file.native(); }

std::filesystem::path WideToPath(std::wstring_view text) {
  std::string native;
  native.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const std::uint32_t c = unicode::TakeUnits(text, at);
    if (c >= kEscape + 0x80 && c <= kEscape + 0xFF) {
      native += static_cast<char>(c - kEscape);
    } else {
      unicode::AppendUtf8(native, unicode::IsScalar(c) ? c : U'?');
    }
  }
  return std::filesystem::path(std::move(native));
}

}  // namespace korin::platform
