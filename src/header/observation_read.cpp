// Observation facts read from the cards of CHeader.
#include <initializer_list>
#include <optional>
#include <string_view>
#include <utility>

#include "header/calendar.h"
#include "header/card_list.h"
#include "header/number_text.h"
#include "korinimage/header.h"
#include "platform/time_zone.h"

using korin::header::CardList;
using korin::header::CardTail;
using korin::header::FindCard;
using korin::header::kNotFound;

namespace calendar = korin::calendar;

namespace {

constexpr std::size_t kQuotedIndex = 11;  // behind the opening quote in column 11

// The text of the first card that matches, from `index` on; no value without one.
std::optional<std::wstring_view> TextOf(const CardList& cards, std::wstring_view key,
                                        std::size_t index = kQuotedIndex) {
  const std::size_t at = FindCard(cards, key);
  if (at == kNotFound) return std::nullopt;
  return CardTail(cards[at], index);
}

// The integer at the front of `text`, which moves behind its digits. A blank or a
// sign in front is part of the number but not skipped.
int TakeInt(std::wstring_view& text) {
  const int value = korin::header::ParseInt(text);
  text = korin::header::SkipDigits(text);
  return value;
}

bool TakeSeparator(std::wstring_view& text, wchar_t separator) {
  if (!text.starts_with(separator)) return false;
  text.remove_prefix(1);
  return true;
}

// Year, month and day of "DATE-OBS"; `text` moves behind the day.
bool TakeDate(std::wstring_view& text, tagADATE& date) {
  date.year = TakeInt(text);
  if (date.year < 100) date.year += date.year < 70 ? 2000 : 1900;
  if (!TakeSeparator(text, L'-')) return false;
  date.month = TakeInt(text);
  if (!TakeSeparator(text, L'-')) return false;
  date.day = TakeInt(text);
  return true;
}

bool TakeTime(std::wstring_view text, tagADATE& date) {
  date.hour = TakeInt(text);
  if (!TakeSeparator(text, L':')) return false;
  date.minute = TakeInt(text);
  if (!TakeSeparator(text, L':')) return false;
  date.second = korin::header::ParseReal(text);
  return true;
}

// The date of "DATE-OBS" with the time of the first source that is present: the
// card `ownKey`, the text behind a "T", "UT", "TIME-OBS".
std::optional<tagADATE> DateTimeOf(const CardList& cards, std::wstring_view ownKey) {
  const auto dateText = TextOf(cards, L"DATE-OBS");
  if (!dateText) return std::nullopt;
  tagADATE date;
  std::wstring_view rest = *dateText;
  if (!TakeDate(rest, date)) return std::nullopt;

  auto time = TextOf(cards, ownKey);
  if (!time && rest.starts_with(L'T')) time = rest.substr(1);
  if (!time) time = TextOf(cards, L"UT");
  if (!time) time = TextOf(cards, L"TIME-OBS");
  if (!time || !TakeTime(*time, date)) return std::nullopt;
  if (!calendar::GetJd(date)) return std::nullopt;
  return date;
}

int ToUtcJd(int found, tagADATE date, double& jd) {
  if (found == 0) return 0;
  date.timezone = 0.0;
  const auto result = calendar::GetJd(date);
  if (!result) return 0;
  jd = *result;
  return 1;
}

int ToStandardTime(int found, tagADATE utc, tagADATE& date) {
  if (found == 0) return 0;
  utc.timezone = 0.0;
  if (!calendar::ChangeTimezone(utc, -korin::platform::StandardBiasMinutes() / 60.0)) return 0;
  date = utc;
  return 1;
}

}  // namespace

int CHeader::GetDateTime(tagADATE& date) const {
  const auto start = DateTimeOf(m_aCards, L"UT-STR");
  if (!start) return 0;
  date = *start;
  return 1;
}

int CHeader::GetDateTime(double& jd) const {
  tagADATE date;
  const int found = GetDateTime(date);
  return ToUtcJd(found, date, jd);
}

int CHeader::GetEndDateTime(tagADATE& date) const {
  auto end = DateTimeOf(m_aCards, L"UT-END");
  if (!end) return 0;
  if (FindCard(m_aCards, L"UT-END") == kNotFound) {
    double exposure = 0.0;
    if (GetExposureTime(exposure) == 0) return 0;
    if (!calendar::ChangeDate(*end, exposure, calendar::Direction::kAdd)) return 0;
  }
  date = *end;
  return 1;
}

int CHeader::GetEndDateTime(double& jd) const {
  tagADATE date;
  const int found = GetEndDateTime(date);
  return ToUtcJd(found, date, jd);
}

int CHeader::GetMidDateTime(tagADATE& date) const {
  double start = 0.0;
  double end = 0.0;
  if (GetDateTime(start) == 0 || GetEndDateTime(end) == 0) return 0;
  return calendar::JdToDate2((start + end) / 2.0, date) ? 1 : 0;
}

int CHeader::GetMidDateTime(double& jd) const {
  tagADATE date;
  const int found = GetMidDateTime(date);
  return ToUtcJd(found, date, jd);
}

int CHeader::GetDateTimeByLst(tagADATE& date) const {
  tagADATE utc;
  const int found = GetDateTime(utc);
  return ToStandardTime(found, utc, date);
}

int CHeader::GetMidDateTimeByLst(tagADATE& date) const {
  tagADATE utc;
  const int found = GetMidDateTime(utc);
  return ToStandardTime(found, utc, date);
}

int CHeader::GetExposureTime(double& seconds) const { return GetHeaderDouble(L"EXPTIME", seconds); }

int CHeader::GetFRatio(double& ratio) const { return GetHeaderDouble(L"F-RATIO", ratio); }

int CHeader::GetFocLen(double& length) const { return GetHeaderDouble(L"FOC-LEN", length); }

int CHeader::GetCoolingTemperature(double& celsius) const {
  double kelvin = 0.0;
  if (GetHeaderDouble(L"DET-TMP", kelvin) != 0) {
    celsius = kelvin - 273.15;
    return 1;
  }
  const auto text = TextOf(m_aCards, L"CCD-TEMP", 10);
  if (!text) return 0;
  celsius = korin::header::ParseReal(*text);
  return 1;
}

int CHeader::GetDetector(std::wstring& name) const {
  constexpr std::size_t kColumns = 20;
  auto text = TextOf(m_aCards, L"INSTRUME");
  if (!text) text = TextOf(m_aCards, L"DETECTOR");
  if (!text) return 0;
  std::wstring field(text->substr(0, kColumns));
  const auto slash = field.rfind(L'/');
  const auto quote = field.rfind(L'\'');
  if (slash != std::wstring::npos && quote != std::wstring::npos && slash > quote) {
    field[slash] = L' ';
  }
  for (wchar_t& c : field) {
    if (c == L'\'') c = L' ';
  }
  const auto begin = field.find_first_not_of(L' ');
  if (begin == std::wstring::npos) {
    name.clear();
  } else {
    name = field.substr(begin, field.find_last_not_of(L' ') - begin + 1);
  }
  return 1;
}
