// The time and exposure cards that CHeader writes.
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>

#include "header/calendar.h"
#include "header/card_list.h"
#include "header/number_text.h"
#include "korinimage/config.h"
#include "korinimage/header.h"

using korin::header::CardList;
using korin::header::FormatFixed;
using korin::header::FormatInt;
using korin::header::PlaceCard;

namespace calendar = korin::calendar;

namespace {

constexpr std::size_t kNumberColumns = 20;

std::wstring TwoDigits(std::int64_t value) { return FormatInt(value, 2, L'0'); }

std::wstring DateText(const tagADATE& t) {
  return FormatInt(t.year, 4, L'0') + L'-' + TwoDigits(t.month) + L'-' + TwoDigits(t.day);
}

// Twelve characters, "HH:MM:SS.S00" or "HH:MM:SS.000". No value when rounding to
// whole seconds leaves the range of years.
std::optional<std::wstring> TimeText(tagADATE t, bool fractions) {
  if (!fractions && !calendar::ChangeDate(t, 0.5, calendar::Direction::kAdd)) return std::nullopt;
  const std::wstring seconds = fractions ? FormatFixed(t.second, 1, 4, L'0') + L"00"
                                         : TwoDigits(static_cast<int>(t.second)) + L".000";
  return TwoDigits(t.hour) + L':' + TwoDigits(t.minute) + L':' + seconds;
}

std::wstring TimeCard(const wchar_t* keyword, const std::wstring& time, const wchar_t* comment) {
  return keyword + (L"= '" + time) + L"'       / " + comment;
}

}  // namespace

int CHeader::SetMidDateTime(double start, double end, double exposure, int coadd,
                            double exposure1) {
  const bool startEnd = CRegistry::Read("IO", "FitsUT-STR_END") != 0;
  const bool fractions = CRegistry::Read("IO", "FitsSecFrac") != 0;

  // Every text is made before the first card changes.
  if (!calendar::IsInRange(start) || !calendar::IsInRange(end) || !std::isfinite(exposure) ||
      !std::isfinite(exposure1)) {
    return 0;
  }
  tagADATE t;
  if (startEnd) {
    if (!calendar::JdToDate2(start, t)) return 0;
  } else {
    if (!calendar::JdToDate2((start + end) * 0.5, t)) return 0;
    if (!calendar::ChangeDate(t, exposure * 0.5, calendar::Direction::kSubtract)) return 0;
  }
  constexpr std::int32_t kFirstYear = 1900;
  if (t.year < kFirstYear) return 0;
  const auto time = TimeText(t, fractions);
  if (!time) return 0;
  std::optional<std::wstring> endTime;
  if (startEnd) {
    tagADATE last;
    if (!calendar::JdToDate2(end, last)) return 0;
    endTime = TimeText(last, fractions);
    if (!endTime) return 0;
  }
  const std::wstring total = FormatFixed(exposure, 2, kNumberColumns, L' ');
  const std::wstring single = FormatFixed(exposure1, 3, kNumberColumns, L' ');
  if (total.size() > kNumberColumns || single.size() > kNumberColumns) return 0;

  CardList cards = m_aCards;
  PlaceCard(cards, L"DATE-OBS",
            L"DATE-OBS= '" + DateText(t) + L"'         / Observation start date (YYYY-MM-DD)");
  PlaceCard(cards, L"UT", TimeCard(L"UT      ", *time, L"Typical UTC at exposure (HH:MM:SS.S)"));
  if (endTime) {
    PlaceCard(cards, L"UT-STR", TimeCard(L"UT-STR  ", *time, L"UTC at start exposure (HH:MM:SS.S)"),
              L"UT");
    PlaceCard(cards, L"UT-END",
              TimeCard(L"UT-END  ", *endTime, L"UTC at end exposure (HH:MM:SS.S)"), L"UT-STR");
  }
  PlaceCard(cards, L"EXPTIME", L"EXPTIME = " + total + L" / Exposure time (sec)");
  PlaceCard(cards, L"EXP1TIME", L"EXP1TIME= " + single + L" / Each exposure time (sec)",
            L"EXPTIME");
  PlaceCard(
      cards, L"COADD",
      L"COADD   = " + FormatInt(coadd, kNumberColumns, L' ') + L" / EXPTIME = EXP1TIME x COADD",
      L"EXP1TIME");
  m_aCards.swap(cards);
  return 1;
}
