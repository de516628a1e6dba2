#include "card_value.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>

#include "platform/text.h"

namespace korin::app {

namespace {

constexpr std::size_t kKeyColumns = 8;

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// A quoted string that starts the text; doubled quotes stand for one.
std::optional<std::string> Quoted(std::string_view text) {
  if (text.empty() || text.front() != '\'') return std::nullopt;
  std::string value;
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (text[i] == '\'') {
      if (i + 1 >= text.size() || text[i + 1] != '\'') break;
      ++i;
    }
    value += text[i];
  }
  value.resize(value.find_last_not_of(' ') + 1);  // npos + 1 is 0: all blank
  return value;
}

}  // namespace

std::string PrintableText(std::wstring_view text) {
  std::wstring safe(text);
  // The second range too: terminals take it for escape sequences.
  std::replace_if(
      safe.begin(), safe.end(), [](wchar_t c) { return c < 0x20 || (c >= 0x7F && c < 0xA0); },
      L'?');
  return platform::ToUtf8(safe);
}

std::optional<std::string> CardValue(const CHeader& header, const std::wstring& keyword) {
  const int index = header.Find(keyword.c_str());
  if (index < 0) return std::nullopt;
  const std::string card = PrintableText(header.GetAt(index));
  const std::string_view view(card);
  if (view.size() < kKeyColumns + 2 || view.substr(kKeyColumns, 2) != "= ") {
    return std::string(Trim(view.substr(std::min(view.size(), kKeyColumns))));
  }
  const std::string_view text = Trim(view.substr(kKeyColumns + 2));
  if (std::optional<std::string> value = Quoted(text)) {
    for (int next = index + 1; !value->empty() && value->back() == '&'; ++next) {
      const std::string more = PrintableText(header.GetAt(next));
      if (more.compare(0, kKeyColumns, "CONTINUE") != 0) break;
      value->pop_back();
      value->append(Quoted(Trim(std::string_view(more).substr(kKeyColumns))).value_or(""));
    }
    return value;
  }
  return std::string(Trim(text.substr(0, text.find('/'))));
}

std::optional<double> CardNumber(const CHeader& header, const std::wstring& keyword) {
  std::string text = CardValue(header, keyword).value_or("");
  text.erase(0, text.find_first_not_of(' '));
  if (text.starts_with('+')) text.erase(0, 1);
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == 'D' || c == 'd'; }, 'E');
  double number = 0.0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool whole = error == std::errc() && end == text.data() + text.size();
  return whole && std::isfinite(number) ? std::optional(number) : std::nullopt;
}

}  // namespace korin::app
