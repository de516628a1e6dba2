#include "card_value.h"

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

std::optional<std::string> CardValue(const CHeader& header, const std::wstring& keyword) {
  const int index = header.Find(keyword.c_str());
  if (index < 0) return std::nullopt;
  const std::string card = platform::ToUtf8(header.GetAt(index));
  const std::string_view view(card);
  if (view.size() < kKeyColumns + 2 || view.substr(kKeyColumns, 2) != "= ") {
    return std::string(Trim(view.substr(std::min(view.size(), kKeyColumns))));
  }
  const std::string_view text = Trim(view.substr(kKeyColumns + 2));
  if (std::optional<std::string> value = Quoted(text)) {
    for (int next = index + 1; !value->empty() && value->back() == '&'; ++next) {
      const std::string more = platform::ToUtf8(header.GetAt(next));
      if (more.compare(0, kKeyColumns, "CONTINUE") != 0) break;
      value->pop_back();
      value->append(Quoted(Trim(std::string_view(more).substr(kKeyColumns))).value_or(""));
    }
    return value;
  }
  return std::string(Trim(text.substr(0, text.find('/'))));
}

}  // namespace korin::app
