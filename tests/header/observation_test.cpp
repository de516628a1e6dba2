#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "header/calendar.h"
#include "header/header_cards.h"
#include "korinimage/header.h"
#include "support/memory_config.h"

namespace {

using korin::test::Cards;
using korin::test::CardsOf;
using korin::test::kInf;
using korin::test::kNan;
using korin::test::Make;

using Getter = int (CHeader::*)(tagADATE&) const;
constexpr Getter kStart = &CHeader::GetDateTime;
constexpr Getter kMid = &CHeader::GetMidDateTime;
constexpr Getter kEnd = &CHeader::GetEndDateTime;

std::string Text(const CHeader& header, Getter get) {
  tagADATE d;
  if ((header.*get)(d) == 0) return "-";
  return std::to_string(d.year) + ' ' + std::to_string(d.month) + ' ' + std::to_string(d.day) +
         ' ' + std::to_string(d.hour) + ':' + std::to_string(d.minute) + ':' +
         std::to_string(d.second);
}

double Jd(const tagADATE& date) { return korin::calendar::GetJd(date).value(); }

TEST(Observation, DatesThatObservatoriesWrite) {
  const struct {
    const wchar_t* date;
    const wchar_t* time;  // another card, or null
    const char* start;
  } kRows[] = {{L"'98-12-31'", L"TIME-OBS= '23:00:00'", "1998 12 31 23:0:0.000000"},
               {L"'05-01-02'", L"UT      = '1:2:3.25 '", "2005 1 2 1:2:3.250000"},
               {L"'69-1-2T0:0:0'", nullptr, "2069 1 2 0:0:0.000000"},
               {L"'70-1-2T0:0:0'", nullptr, "1970 1 2 0:0:0.000000"},
               {L"'2020-02-24T19:29:25.632' / UTC start", nullptr, "2020 2 24 19:29:25.632000"},
               {L"'2023-04-05T06:07:08.5'", L"UT-STR  = '01:02:03'", "2023 4 5 1:2:3.000000"},
               {L"'2023-04-05T06:07:08.5'", L"UT-STR  = broken", "-"},
               {L"'2023-04-05T06:07:08.5'", L"UT      = '01:02:03'", "2023 4 5 6:7:8.500000"},
               {L"'2023-04-05'", L"UT      =                 12.5", "-"},
               {L"'2023-04-05'", nullptr, "-"},
               {L"'2023-04-05 06:07:08'", nullptr, "-"},
               {L"'2023-04-05t06:07:08'", nullptr, "-"},
               {L"'2023-04-05T06:07:60.5Z'", nullptr, "2023 4 5 6:7:60.500000"},
               {L"'2023-04-05T06:07'", nullptr, "-"},
               {L"'2023-04-05T6:7:1d1'", nullptr, "2023 4 5 6:7:10.000000"},
               {L"'2023-04-05T6:7:'", nullptr, "2023 4 5 6:7:0.000000"},
               {L"'31/12/98'", L"UT      = '01:02:03'", "-"},
               {L"' 98-12-31'", L"UT      = '01:02:03'", "-"},
               {L"'2023--05'", L"UT      = '01:02:03'", "2023 -5 5 1:2:3.000000"},
               {L"'-2023-01-01'", L"UT      = '01:02:03'", "-23 2023 1 1:2:3.000000"},
               {L"'-5-01-01T1:2:3'", nullptr, "-"},
               {L"'20230405'", L"UT      = '01:02:03'", "-"},
               {L"'12023-04-05T1:2:3'", nullptr, "-"},
               {L"'2023-99999999999-05T1:2:3'", nullptr, "-"},
               {L"'2023-04-05T1:2:1e300'", nullptr, "-"},
               {L"''", L"UT      = '01:02:03'", "-"},
               {L"", L"UT      = '01:02:03'", "-"},
               {L"2023-04-05T01:02:03", nullptr,  // "023" is completed
                "2023 4 5 1:2:3.000000"}};
  for (const auto& row : kRows) {
    CHeader header = Make({std::wstring(L"DATE-OBS= ") + row.date});
    if (row.time != nullptr) header.Add(row.time);
    EXPECT_EQ(Text(header, kStart), row.start) << row.date;
    double jd = 0.0;
    EXPECT_EQ(header.GetDateTime(jd), row.start[0] == '-' && row.start[1] == '\0' ? 0 : 1);
  }
  EXPECT_EQ(Text(Make({L"UT      = '01:02:03'"}), kStart), "-");
}

TEST(Observation, EndAndMiddle) {
  const std::wstring date = L"DATE-OBS= '2023-04-05T23:59:50'";
  const std::wstring exposure = L"EXPTIME =                 20.0";
  const std::wstring start = L"UT-STR  = '23:59:50'";
  const struct {
    Cards cards;
    const char* end;
    const char* mid;
  } kRows[] = {
      {{date, exposure}, "2023 4 6 0:0:10.000000", "2023 4 6 0:0:0.000000"},
      {{date}, "-", "-"},
      {{L"DATE-OBS= '2023-04-05'", start, exposure}, "-", "-"},
      {{L"DATE-OBS= '2023-04-05'", start, L"UT      = '23:59:40'", exposure},
       "2023 4 6 0:0:0.000000",
       "2023 4 5 23:59:55.000000"},
      // Across midnight "UT-END" keeps the date of the start.
      {{date, start, L"UT-END  = '00:00:10'"}, "2023 4 5 0:0:10.000000", "2023 4 5 12:0:0.000000"},
      {{date, exposure, L"UT-END  = 'x'"}, "-", "-"},
      {{date, L"EXPTIME =               1E400"}, "-", "-"},
      {{date, L"EXPTIME =                1E15"}, "-", "-"},
      {{date, L"EXPTIME = 'unknown'"}, "2023 4 5 23:59:50.000000", "2023 4 5 23:59:50.000000"}};
  for (const auto& row : kRows) {
    const CHeader header = Make(row.cards);
    EXPECT_EQ(Text(header, kEnd), row.end);
    EXPECT_EQ(Text(header, kMid), row.mid);
    double jd = 0.0;
    EXPECT_EQ(header.GetMidDateTime(jd), row.mid[0] == '-' ? 0 : 1);
  }
  double jd = 0.0;
  ASSERT_EQ(Make({date, exposure}).GetEndDateTime(jd), 1);
  EXPECT_NEAR(jd, Jd({2023, 4, 6, 0, 0, 10.0, 0}), 5e-10);
}

TEST(Observation, TemperatureAndDetector) {
  const struct {
    Cards cards;
    double celsius;
  } kRows[] = {{{L"DET-TMP =               253.15", L"CCD-TEMP= 5"}, -20.0},
               {{L"DET-TMP = 'cold'", L"CCD-TEMP= 5"}, -273.15},
               {{L"CCD-TEMP= -20.5 / C"}, -20.5},
               {{L"CCD-TEMP=             2.00E+01 / C"}, 20.0},
               {{L"CCD-TEMP="}, 0.0}};
  for (const auto& row : kRows) {
    double celsius = -999.0;
    ASSERT_EQ(Make(row.cards).GetCoolingTemperature(celsius), 1);
    EXPECT_NEAR(celsius, row.celsius, 1e-9);
  }
  double celsius = -999.0;
  EXPECT_EQ(CHeader().GetCoolingTemperature(celsius), 0);

  const struct {
    const wchar_t* card;
    const wchar_t* name;
  } kNames[] = {{L"INSTRUME= 'ST-10XME'           / detector", L"ST-10XME"},
                {L"DETECTOR= 'A long detector name of camera'", L"A long detector name"},
                {L"INSTRUME= 'ST-10XME' / camera", L"ST-10XME    camera"},
                {L"INSTRUME= 'a/b'  / c", L"a/b     c"},
                {L"INSTRUME= 'a / b'", L"a / b"},
                {L"INSTRUME= name / x", L"ame / x"},
                {L"INSTRUME= ''", L""},
                {L"INSTRUME=", L""}};
  for (const auto& row : kNames) {
    std::wstring name = L"old";
    EXPECT_EQ(Make({row.card}).GetDetector(name), 1);
    EXPECT_EQ(name, row.name);
  }
  std::wstring name;
  EXPECT_EQ(CHeader().GetDetector(name), 0);
  EXPECT_EQ(Make({L"DETECTOR= 'D'", L"INSTRUME= 'I'"}).GetDetector(name), 1);
  EXPECT_EQ(name, L"I");
}

TEST(Observation, SingleNumbers) {
  const CHeader header =
      Make({L"F-RATIO =                  7.5", L"FOC-LEN =               1200.0"});
  double ratio = 0.0;
  double length = 0.0;
  EXPECT_EQ(header.GetFRatio(ratio) + header.GetFocLen(length), 2);
  EXPECT_EQ(ratio, 7.5);
  EXPECT_EQ(length, 1200.0);
}

class SetMidDateTime : public ::testing::Test {
 protected:
  void Modes(int startEnd, int fractions) {
    m_config->WriteInt("IO", "FitsUT-STR_END", startEnd);
    m_config->WriteInt("IO", "FitsSecFrac", fractions);
  }
  korin::test::ScopedMemoryConfig m_config;
};

const wchar_t* const kExposureCards[] = {
    L"EXPTIME =               300.00 / Exposure time (sec)",
    L"EXP1TIME=              100.000 / Each exposure time (sec)",
    L"COADD   =                    3 / EXPTIME = EXP1TIME x COADD"};

TEST_F(SetMidDateTime, CardsOfEveryMode) {
  const std::wstring date = L"DATE-OBS= '2023-04-05'         / Observation start date (YYYY-MM-DD)";
  const Cards three = {L"UT      = '11:59:59.000'       / Typical UTC at exposure (HH:MM:SS.S)",
                       L"UT-STR  = '11:59:59.000'       / UTC at start exposure (HH:MM:SS.S)",
                       L"UT-END  = '12:05:18.000'       / UTC at end exposure (HH:MM:SS.S)"};
  const struct {
    int startEnd;
    int fractions;
    Cards timeCards;
  } kRows[] = {{0, 0, {L"UT      = '12:00:09.000'       / Typical UTC at exposure (HH:MM:SS.S)"}},
               {0, 1, {L"UT      = '12:00:08.500'       / Typical UTC at exposure (HH:MM:SS.S)"}},
               {1, 0, three},
               {-1, 2, three}};
  for (const auto& row : kRows) {
    Modes(row.startEnd, row.fractions);
    CHeader header;
    ASSERT_EQ(header.SetMidDateTime(Jd({2023, 4, 5, 11, 59, 59.0, 0}),
                                    Jd({2023, 4, 5, 12, 5, 18.0, 0}), 300.0, 3, 100.0),
              1);
    Cards expected = {date};
    expected.insert(expected.end(), row.timeCards.begin(), row.timeCards.end());
    expected.insert(expected.end(), std::begin(kExposureCards), std::end(kExposureCards));
    EXPECT_EQ(CardsOf(header), expected);
  }
}

TEST_F(SetMidDateTime, RoundingAtTheEdges) {
  const double end = Jd({2023, 4, 6, 1, 0, 0, 0});
  const struct {
    int fractions;
    tagADATE start;
    const wchar_t* time;
  } kRows[] = {{0, {2023, 4, 5, 23, 59, 59.7, 0}, L"00:00:00.000"},
               {1, {2023, 4, 5, 23, 59, 59.96, 0}, L"23:59:60.000"},
               {1, {2023, 4, 5, 0, 1, 0.0, 0}, L"00:01:00.000"},
               {0, {2023, 4, 5, 0, 0, 8.5, 0}, L"00:00:09.000"}};
  for (const auto& row : kRows) {
    Modes(1, row.fractions);
    CHeader header;
    ASSERT_EQ(header.SetMidDateTime(Jd(row.start), end, 1, 1, 1), 1);
    EXPECT_EQ(header.GetAt(header.Find(L"DATE-OBS")).substr(11, 10), L"2023-04-05");
    EXPECT_EQ(header.GetAt(header.Find(L"UT-STR")).substr(11, 12), row.time);
  }
}

TEST_F(SetMidDateTime, CardsAreReplacedWhereTheyStand) {
  Modes(1, 0);
  CHeader header = Make({L"COADD   = old", L"UT-END  = old", L"OBJECT  = 'M13'", L"UT      = old",
                         L"UT      = second", L"EXPTIME = old", L"END     "});
  ASSERT_EQ(header.SetMidDateTime(2460040.0, 2460040.5, 300.0, -3, 100.0), 1);
  std::wstring keywords;
  for (const auto& card : CardsOf(header)) keywords += card.substr(0, 8) + L'|';
  EXPECT_EQ(keywords,
            L"COADD   |UT-END  |OBJECT  |UT      |UT-STR  |UT      |EXPTIME |EXP1TIME|END     |"
            L"DATE-OBS|");
  EXPECT_EQ(header.GetAt(0), L"COADD   =                   -3 / EXPTIME = EXP1TIME x COADD");
  EXPECT_EQ(header.GetAt(5), L"UT      = second");

  // In the other mode the start and end cards of before stay, and win when read.
  Modes(0, 0);
  ASSERT_EQ(header.SetMidDateTime(2460100.0, 2460100.0, 0.0, 1, 0.0), 1);
  EXPECT_EQ(header.GetAt(header.Find(L"UT")).substr(11, 8), L"12:00:00");
  EXPECT_EQ(Text(header, kEnd), "2023 6 4 0:0:0.000000");
}

TEST_F(SetMidDateTime, RefusalsLeaveTheHeader) {
  const double now = 2460040.0;
  const double y1900 = Jd({1900, 1, 1, 0, 0, 10.0, 0});
  const double last = Jd({9999, 12, 31, 23, 59, 59.8, 0});
  const struct {
    double start, end, exposure, exposure1;
    int resultTypical, resultStartEnd;
  } kRows[] = {{now, now, 1, 1, 1, 1},
               {y1900, y1900, 60, 60, 0, 1},
               {y1900 - 1, y1900 - 1, 0, 0, 0, 0},
               {kNan, now, 1, 1, 0, 0},
               {now, kInf, 1, 1, 0, 0},
               {now, 1e300, 1, 1, 0, 0},
               {now, 37.4, 1, 1, 0, 0},
               {now, now, kNan, 1, 0, 0},
               {now, now, 1, -kInf, 0, 0},
               {now, now, 9.9e16, 1, 0, 1},  // half of it leads out of the years
               {now, now, 1e17, 1, 0, 0},
               {now, now, -1e16, 1, 0, 0},
               {now, now, 1, 9.9e15, 1, 1},
               {now, now, 1, 1e16, 0, 0},
               {now, now, 1, -1e15, 0, 0},
               {last, last, 0, 0, 0, 0},  // rounds into the year 10000
               {now, last, 0, 0, 1, 0},
               {now, now, -6e11, 1, 0, 1}};
  const Cards before = {L"UT      = old", L"OBJECT  = 'M13'"};
  for (const auto& row : kRows) {
    for (const int mode : {0, 1}) {
      Modes(mode, 0);
      CHeader header = Make(before);
      const int expected = mode == 0 ? row.resultTypical : row.resultStartEnd;
      EXPECT_EQ(header.SetMidDateTime(row.start, row.end, row.exposure, 1, row.exposure1), expected)
          << row.start << ' ' << row.end << ' ' << row.exposure << ' ' << row.exposure1 << ' '
          << mode;
      EXPECT_EQ(CardsOf(header) == before, expected == 0);
      for (const auto& card : CardsOf(header)) EXPECT_LE(card.size(), 80U);
    }
  }
}

TEST_F(SetMidDateTime, ReadsBackWhatItWrote) {
  Modes(1, 1);
  std::mt19937_64 random(5);
  for (int i = 0; i < 3000; ++i) {
    // Whole tenths of a second, within one day.
    const double day = 2415020.5 + static_cast<double>(random() % 73414);
    const auto from = static_cast<double>(random() % 400000);
    const auto length = static_cast<double>(random() % 400000);
    CHeader header;
    ASSERT_EQ(header.SetMidDateTime(day + from / 864000, day + (from + length) / 864000,
                                    length / 10, 1, length / 10),
              1);
    double start = 0.0;
    double mid = 0.0;
    double end = 0.0;
    ASSERT_EQ(header.GetDateTime(start) + header.GetMidDateTime(mid) + header.GetEndDateTime(end),
              3);
    constexpr double kDays50us = 50e-6 / 86400;
    ASSERT_NEAR((start - day) * 864000, from, kDays50us * 864000);
    ASSERT_NEAR((end - day) * 864000, from + length, kDays50us * 864000);
    ASSERT_NEAR((mid - day) * 864000, from + length / 2, kDays50us * 864000);
  }
}

}  // namespace
