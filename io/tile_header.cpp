#include "tile_header.h"

#include <array>
#include <cctype>
#include <charconv>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "fits_cards.h"
#include "korinimage/io/file_error.h"

namespace korin {

namespace {

constexpr std::int64_t kMostAxes = 6;
constexpr std::int64_t kLongest = 0x7FFFFFFF;

// A whole number and nothing else between "=" and the comment.
std::optional<std::int64_t> WholeNumber(std::string_view card) {
  if (card.size() < 10 || card[8] != '=') return std::nullopt;
  std::string_view value = card.substr(9);
  value = value.substr(0, value.find('/'));
  const std::size_t first = value.find_first_not_of(' ');
  if (first == std::string_view::npos) return std::nullopt;
  value = value.substr(first, value.find_last_not_of(' ') - first + 1);
  if (value.front() == '+') value.remove_prefix(1);
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
  if (error != std::errc() || end != value.data() + value.size()) return std::nullopt;
  return number;
}

[[noreturn]] void Refuse(const std::filesystem::path& file, const std::string& keyword) {
  throw FileError(file, "has a compressed image with an impossible " + keyword,
                  "the file is truncated or its header is damaged");
}

}  // namespace

void CheckTileHeader(const std::filesystem::path& file, std::int64_t start) {
  std::ifstream in(file, std::ios::binary);
  in.seekg(start);
  std::array<char, 80> card{};
  std::map<std::string, std::string, std::less<>> names;  // of the settings, by index
  std::map<std::string, std::optional<std::int64_t>, std::less<>> values;
  bool isRice = false;
  while (in.read(card.data(), card.size())) {
    const std::string_view text(card.data(), card.size());
    // Keywords are compared without case, in case the library does.
    std::string keyword(CardKeyword(text));
    for (char& c : keyword) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (keyword == "END") break;
    if (keyword == "ZCMPTYPE") isRice = isRice || text.find("RICE") != std::string_view::npos;
    if (keyword.starts_with("ZNAME")) names[keyword.substr(5)] = text.substr(8);
    if (keyword.starts_with("ZVAL")) values[keyword.substr(4)] = WholeNumber(text);
    const bool axes = keyword == "ZNAXIS";
    if (!axes && !keyword.starts_with("ZTILE") && !keyword.starts_with("ZNAXIS")) continue;
    const auto number = WholeNumber(text);
    if (!number || *number < 1 || *number > (axes ? kMostAxes : kLongest)) Refuse(file, keyword);
  }
  if (!in.is_open() || in.bad()) throw FileError(file, "cannot be read");
  if (!isRice) return;
  for (const auto& [index, value] : values) {
    // Without names the first setting is the one that is divided by.
    const auto name = names.find(index);
    const bool divides = name == names.end() || name->second.find("BLOCK") != std::string::npos;
    if (divides && (!value || *value < 1 || *value > kLongest)) Refuse(file, "ZVAL" + index);
  }
}

}  // namespace korin
