// Dates as cards hold them and as callers pass them: the parser, the calendar and
// the writer of the time cards.
#include <algorithm>
#include <cmath>
#include <vector>

#include "fuzz_input.h"
#include "header/calendar.h"
#include "korinimage/header.h"
#include "platform/text.h"
#include "support/memory_config.h"

using korin::fuzz::Input;
using korin::fuzz::Require;

namespace calendar = korin::calendar;

namespace {

constexpr double kSecondsOfDay = 86400.0;
// Half a step of the 0.1 ms grid and the last place of a Julian Date far from
// today, in days.
constexpr double kGridDays = 0.00005 / kSecondsOfDay + 2e-9;

bool IsNormal(const tagADATE& d) {
  return d.year >= -4712 && d.year <= 9999 && d.month >= 1 && d.month <= 12 && d.day >= 1 &&
         d.day <= 31 && d.hour >= 0 && d.hour <= 23 && d.minute >= 0 && d.minute <= 59 &&
         d.second >= 0.0 && d.second < 60.0 && !std::signbit(d.second);
}

std::vector<std::wstring> CardsOf(const CHeader& header) {
  std::vector<std::wstring> cards;
  for (int i = 0; i < header.GetCount(); ++i) cards.push_back(header.GetAt(i));
  return cards;
}

void ReadDates(const CHeader& header) {
  tagADATE date;
  double start = 0.0;
  double end = 0.0;
  double jd = 0.0;
  const int hasStart = header.GetDateTime(date);
  Require(header.GetDateTime(start) == hasStart, "both forms of the start agree");
  Require(hasStart == 0 || calendar::IsInRange(start), "a start lies in range");
  const int hasEnd = header.GetEndDateTime(end);
  const int hasMid = header.GetMidDateTime(date);
  Require(hasMid <= (hasStart & hasEnd), "a middle needs both ends");
  Require(hasMid == 0 || IsNormal(date), "a middle is a normal date");
  Require(header.GetMidDateTime(jd) == hasMid, "both forms of the middle agree");
  Require(hasMid == 0 || std::fabs(jd - (start + end) / 2) < kGridDays, "the middle is right");
  header.GetDateTimeByLst(date);
  header.GetMidDateTimeByLst(date);
}

// Text in which a byte above 127 stands for a piece of a date: whole dates would
// hardly ever arise letter by letter.
std::wstring TakeDateText(Input& input) {
  static const wchar_t* const kPieces[] = {
      L"2023-04-05", L"01:02:03", L"2023",  L"-12", L"-31", L"T23:59:59.9", L"T",          L"'",
      L":",          L"-",        L"1E400", L"99-", L"0",   L".5",          L"4294967296", L"D9"};
  std::wstring text;
  for (const char c : input.TakeText()) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 128) {
      text += static_cast<wchar_t>(byte);
    } else {
      text += kPieces[byte % 16];
    }
  }
  return text;
}

void ParseCards(Input& input) {
  static const wchar_t* const kCards[] = {L"DATE-OBS= '", L"UT-STR  = '", L"UT-END  = '",
                                          L"UT      = '", L"TIME-OBS= '", L"EXPTIME =  "};
  CHeader header;
  header.Add((L"DATE-OBS= '" + TakeDateText(input)).c_str());
  while (!input.Empty()) {
    const std::wstring keyword = kCards[input.Take<std::uint8_t>() % 6];
    header.Add((keyword + TakeDateText(input)).c_str());
  }
  ReadDates(header);
}

tagADATE TakeDate(Input& input) {
  tagADATE date;
  for (std::int32_t* part : {&date.year, &date.month, &date.day, &date.hour, &date.minute}) {
    // Mostly small parts, now and then any at all.
    *part =
        input.Take<std::uint8_t>() < 250 ? input.Take<std::int16_t>() : input.Take<std::int32_t>();
  }
  date.second = input.Take<double>();
  date.timezone = input.Take<std::int8_t>();
  return date;
}

void Calculate(Input& input) {
  tagADATE date = TakeDate(input);
  const tagADATE span = TakeDate(input);
  const auto before = calendar::GetJd(date);
  const tagADATE old = date;
  tagADATE back;
  if (before && calendar::JdToDate2(*before, back)) {
    Require(IsNormal(back), "a Julian Date gives a normal date");
    Require(std::fabs(*calendar::GetJd(back) - *before) < kGridDays, "the way back is right");
  }
  const auto direction = input.Take<std::uint8_t>() % 2 == 0 ? calendar::Direction::kAdd
                                                             : calendar::Direction::kSubtract;
  if (!calendar::ChangeDate(date, span, direction)) {
    Require(date.year == old.year && date.month == old.month && date.day == old.day,
            "a refused change changes nothing");
  } else {
    Require(IsNormal(date), "a changed date is a normal one");
  }
  date = old;
  const double seconds = input.Take<double>();
  if (before && calendar::ChangeDate(date, seconds, direction)) {
    const double sign = direction == calendar::Direction::kAdd ? 1.0 : -1.0;
    const double expected = *before + sign * seconds / kSecondsOfDay;
    const auto after = calendar::GetJd(date);
    Require(!after || std::fabs(*after - expected) < kGridDays, "a span of seconds is right");
  }
  const double hours = input.Take<double>();
  if (calendar::ChangeTimezone(date, hours)) {
    Require(IsNormal(date) && date.timezone == hours, "a date in a zone is a normal one");
  }
}

void WriteCards(Input& input) {
  const std::uint8_t modes = input.Take<std::uint8_t>();
  const korin::test::ScopedMemoryConfig config;
  config->WriteInt("IO", "FitsUT-STR_END", modes & 1);
  config->WriteInt("IO", "FitsSecFrac", modes & 2);
  const auto takeJd = [&] {
    return input.Take<std::uint8_t>() < 200 ? 2400000.0 + input.Take<std::uint32_t>() / 1e4
                                            : input.Take<double>();
  };
  const double start = takeJd();
  const double end = takeJd();
  const double exposure = input.Take<double>();
  const int coadd = input.Take<std::int32_t>();
  const double exposure1 = input.Take<double>();
  CHeader header;
  while (!input.Empty()) header.Add(korin::platform::FromUtf8(input.TakeText()).c_str());
  const auto before = CardsOf(header);
  if (header.SetMidDateTime(start, end, exposure, coadd, exposure1) == 0) {
    Require(CardsOf(header) == before, "a refusal leaves the header");
    return;
  }
  for (const wchar_t* key : {L"DATE-OBS", L"UT", L"EXPTIME", L"EXP1TIME", L"COADD"}) {
    const int at = header.Find(key);
    Require(at >= 0, "every card is there");
    Require(header.GetAt(at).find(L" / ") != std::wstring::npos, "every card has its comment");
  }
  ReadDates(header);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  switch (input.Take<std::uint8_t>() % 3) {
    case 0:
      ParseCards(input);
      break;
    case 1:
      Calculate(input);
      break;
    default:
      WriteCards(input);
      break;
  }
  return 0;
}
