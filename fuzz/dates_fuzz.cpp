// Dates as cards hold them: what the readers make of any text in any of the cards they
// look for.
#include <cmath>

#include "fuzz_input.h"
#include "header/calendar.h"
#include "korinimage/header.h"

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  ParseCards(input);
  return 0;
}
