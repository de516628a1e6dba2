#include "fits_cards.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "platform/text.h"

namespace korin {

namespace {

constexpr std::size_t kColumns = 80;
constexpr std::size_t kKeyColumns = 8;
constexpr std::size_t kValueEnd = 30;  // fixed-format numbers end in this column

// A name and a positive number: NAXIS2, ZTILE1.
bool IsIndexed(std::string_view keyword, std::string_view stem) {
  return keyword.size() > stem.size() && keyword.substr(0, stem.size()) == stem &&
         std::all_of(keyword.begin() + static_cast<std::ptrdiff_t>(stem.size()), keyword.end(),
                     [](char c) { return c >= '0' && c <= '9'; });
}

template <std::size_t N>
bool Contains(const std::array<std::string_view, N>& list, std::string_view keyword) {
  return std::find(list.begin(), list.end(), keyword) != list.end();
}

std::string Renamed(const std::string& card, std::string_view keyword) {
  std::string result(keyword);
  result.resize(kKeyColumns, ' ');
  return result + (card.size() > kKeyColumns ? card.substr(kKeyColumns) : std::string());
}

std::string ValueCard(std::string_view keyword, std::string_view value, std::string_view comment) {
  std::string card(keyword);
  card.resize(kKeyColumns, ' ');
  card += "= ";
  if (card.size() + value.size() < kValueEnd)
    card.append(kValueEnd - card.size() - value.size(), ' ');
  card += value;
  if (!comment.empty()) card.append(" / ").append(comment);
  card.resize(kColumns, ' ');
  return card;
}

// Cards of a compressed table that say nothing about the image.
bool IsTableCard(std::string_view keyword) {
  static constexpr std::array<std::string_view, 17> kNames = {
      "XTENSION", "BITPIX",  "NAXIS",    "PCOUNT",   "GCOUNT",   "TFIELDS",
      "THEAP",    "ZIMAGE",  "ZCMPTYPE", "ZQUANTIZ", "ZDITHER0", "ZMASKCMP",
      "CHECKSUM", "DATASUM", "ZSCALE",   "ZZERO",    "ZBLANK"};
  static constexpr std::array<std::string_view, 9> kStems = {
      "NAXIS", "TTYPE", "TFORM", "TUNIT", "TDIM", "ZTILE", "ZNAME", "ZVAL", "TNULL"};
  return Contains(kNames, keyword) ||
         std::any_of(kStems.begin(), kStems.end(),
                     [&](std::string_view stem) { return IsIndexed(keyword, stem); });
}

// The image's name for a structural card that the table keeps under another one.
std::string ImageName(std::string_view keyword) {
  static constexpr std::array<std::string_view, 10> kKept = {
      "ZSIMPLE", "ZTENSION", "ZBITPIX",  "ZNAXIS",   "ZPCOUNT",
      "ZGCOUNT", "ZEXTEND",  "ZBLOCKED", "ZHECKSUM", "ZDATASUM"};
  if (!Contains(kKept, keyword) && !IsIndexed(keyword, "ZNAXIS")) return {};
  if (keyword == "ZTENSION") return "XTENSION";
  if (keyword == "ZHECKSUM") return "CHECKSUM";
  return std::string(keyword.substr(1));
}

}  // namespace

std::wstring CardToWide(std::string_view card) {
  std::wstring wide = platform::FromUtf8(card);
  if (wide.find(L'\uFFFD') != std::wstring::npos) {
    wide.clear();
    for (const char c : card) wide.push_back(static_cast<wchar_t>(static_cast<unsigned char>(c)));
  }
  if (wide.size() < kColumns) wide.append(kColumns - wide.size(), L' ');
  return wide;
}

std::string CardToBytes(std::wstring_view card) {
  std::string bytes = platform::ToUtf8(card);
  for (char& c : bytes) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
  }
  bytes.resize(kColumns, ' ');
  return bytes;
}

std::string_view CardKeyword(std::string_view card) {
  std::string_view keyword = card.substr(0, kKeyColumns);
  const std::size_t last = keyword.find_last_not_of(' ');
  return last == std::string_view::npos ? std::string_view() : keyword.substr(0, last + 1);
}

bool IsWriterCard(std::string_view keyword) {
  static constexpr std::array<std::string_view, 14> kNames = {
      "SIMPLE", "XTENSION", "BITPIX", "NAXIS",    "PCOUNT",  "GCOUNT", "GROUPS",
      "EXTEND", "BLOCKED",  "END",    "CHECKSUM", "DATASUM", "BSCALE", "BZERO"};
  return Contains(kNames, keyword) || IsIndexed(keyword, "NAXIS");
}

std::vector<std::string> ImageCardsOfTable(const std::vector<std::string>& table) {
  std::vector<std::string> structure;
  std::vector<std::string> others;
  for (const std::string& card : table) {
    const std::string_view keyword = CardKeyword(card);
    const std::string name = ImageName(keyword);
    if (!name.empty()) {
      structure.push_back(Renamed(card, name));
    } else if (keyword == "EXTNAME" && card.find("'COMPRESSED_IMAGE'") != std::string::npos) {
      continue;  // the compressor's name for a table whose image had none
    } else if (!IsTableCard(keyword)) {
      others.push_back(card);
    }
  }
  // Whatever order the table had: the first card says what kind of unit it is.
  std::stable_partition(structure.begin(), structure.end(), [](const std::string& card) {
    const std::string_view keyword = CardKeyword(card);
    return keyword == "SIMPLE" || keyword == "XTENSION";
  });
  structure.insert(structure.end(), others.begin(), others.end());
  return structure;
}

std::string LogicalCard(std::string_view keyword, bool value, std::string_view comment) {
  return ValueCard(keyword, value ? "T" : "F", comment);
}

std::string IntegerCard(std::string_view keyword, long long value, std::string_view comment) {
  return ValueCard(keyword, std::to_string(value), comment);
}

std::string RealCard(std::string_view keyword, double value, std::string_view comment) {
  std::array<char, 32> buffer{};  // the shortest form that reads back exactly
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value).ptr;
  std::string text(buffer.data(), end);
  if (text.find_first_of(".e") == std::string::npos) text += ".0";
  std::replace(text.begin(), text.end(), 'e', 'E');
  return ValueCard(keyword, text, comment);
}

}  // namespace korin
