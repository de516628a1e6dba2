#include "platform/text.h"

#include <optional>

#include "platform/unicode.h"
#include "platform/win32/windows_api.h"

namespace korin::platform {

namespace {

// One character in the code page. Some pages have no flag for "nothing merely alike".
std::string ToCodePage(const std::wstring& character) {
  char bytes[16];
  const auto convert = [&](DWORD flags) {
    return WideCharToMultiByte(CP_ACP, flags, character.data(), static_cast<int>(character.size()),
                               bytes, sizeof bytes, nullptr, nullptr);
  };
  int count = convert(WC_NO_BEST_FIT_CHARS);
  if (count == 0 && GetLastError() == ERROR_INVALID_FLAGS) count = convert(0);
  return count > 0 ? std::string(bytes, static_cast<std::size_t>(count)) : "?";
}

std::wstring FromCodePage(const std::string& bytes) {
  std::wstring out(bytes.size(), L'\0');  // no byte is more than one unit
  const int count =
      bytes.empty() ? 0
                    : MultiByteToWideChar(CP_ACP, 0, bytes.data(), static_cast<int>(bytes.size()),
                                          out.data(), static_cast<int>(out.size()));
  out.resize(static_cast<std::size_t>(count));
  return out;
}

// The whole text, when the code page has every character of it.
std::optional<std::string> InCodePage(const std::wstring& text) {
  std::string bytes;
  for (std::size_t at = 0; at < text.size();) {
    std::wstring character;
    unicode::AppendUnits(character, unicode::TakeUnits(std::wstring_view(text), at));
    const std::string next = ToCodePage(character);
    if (FromCodePage(next) != character) return std::nullopt;
    bytes += next;
  }
  return bytes;
}

}  // namespace

std::wstring CutToColumns(std::wstring_view text, int bytes) {
  if (bytes <= 0) return {};
  const auto limit = static_cast<std::size_t>(bytes);
  std::string kept;
  for (std::size_t at = 0; at < text.size() && kept.size() < limit;) {
    const std::uint32_t c = unicode::TakeUnits(text, at);
    std::wstring character;
    unicode::AppendUnits(character, unicode::IsScalar(c) ? c : U'?');
    const std::string next = ToCodePage(character);
    if (kept.size() + next.size() > limit) break;
    kept += next;
  }
  return FromCodePage(kept);
}

std::wstring PathToWide(const std::filesystem::path& path) { return path.native(); }

std::filesystem::path PathOf(std::string_view text) { return FromUtf8(text); }

std::string NarrowName(const std::filesystem::path& file) {
  if (const auto name = InCodePage(file.native())) return *name;
  std::wstring alias(32768, L'\0');
  const DWORD size =
      GetShortPathNameW(file.c_str(), alias.data(), static_cast<DWORD>(alias.size()));
  alias.resize(size < alias.size() ? size : 0);
  return InCodePage(alias).value_or("");
}

std::filesystem::path WideToPath(std::wstring_view text) { return std::filesystem::path(text); }

}  // namespace korin::platform
