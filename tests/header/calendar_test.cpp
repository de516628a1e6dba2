#include "header/calendar.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <random>
#include <tuple>

#include "header/header_cards.h"

namespace korin::calendar {
namespace {

using korin::test::kInf;
using korin::test::kNan;

void ExpectSame(const tagADATE& a, const tagADATE& b) {
  EXPECT_EQ(std::tie(a.year, a.month, a.day, a.hour, a.minute, a.second, a.timezone),
            std::tie(b.year, b.month, b.day, b.hour, b.minute, b.second, b.timezone));
}

TEST(Calendar, KnownJulianDates) {
  const struct {
    tagADATE date;
    double jd;
  } kRows[] = {{{2000, 1, 1, 12, 0, 0, 0}, 2451545.0},  {{1970, 1, 1, 0, 0, 0, 0}, 2440587.5},
               {{1858, 11, 17, 0, 0, 0, 0}, 2400000.5}, {{1582, 10, 15, 12, 0, 0, 0}, 2299161.0},
               {{2100, 3, 1, 0, 0, 0, 0}, 2488128.5},   {{2024, 2, 29, 18, 0, 0, 0}, 2460370.25},
               {{-4712, 1, 1, 0, 0, 0, 0}, 37.5},       {{9999, 12, 31, 12, 0, 0, 0}, 5373484.0}};
  for (const auto& row : kRows) {
    EXPECT_EQ(GetJd(row.date), row.jd);
    tagADATE back;
    ASSERT_TRUE(JdToDate2(row.jd, back));
    ExpectSame(back, row.date);
  }
  EXPECT_EQ(GetJd({2000, 1, 1, 21, 0, 0, 9.0}), 2451545.0);
  EXPECT_EQ(GetJd({1999, 13, 1, 12, 0, 0, 0}), 2451545.0);
  EXPECT_EQ(GetJd({2023, 2, 30, 0, 0, 0, 0}), GetJd({2023, 3, 2, 0, 0, 0, 0}));
  EXPECT_EQ(GetJd({-23, 2023, 1, 0, 0, 0, 0}), GetJd({145, 7, 1, 0, 0, 0, 0}));
  EXPECT_EQ(GetJd({2000, -11, 0, 0, -60, 0, 0}), GetJd({1998, 12, 30, 23, 0, 0, 0}));
}

TEST(Calendar, OutsideTheYearsNothingIsGiven) {
  const tagADATE kDates[] = {{10000, 1, 1, 0, 0, 0, 0},
                             {-4713, 12, 31, 23, 59, 59, 0},
                             {INT_MAX, INT_MAX, INT_MAX, INT_MAX, INT_MAX, 1e308, 1e308},
                             {INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN, -1e308, -1e308},
                             {2000, 1, 1, 0, 0, kNan, 0},
                             {2000, 1, 1, 0, 0, kInf, 0},
                             {2000, 1, 1, 0, 0, 0, kNan},
                             {2000, INT_MAX, 1, 0, 0, 0, 0}};
  for (const auto& date : kDates) EXPECT_FALSE(GetJd(date));
  for (const double jd : {37.4, 5373484.5, 1e300, -1e300, kInf, -kInf, kNan}) {
    tagADATE date{1, 2, 3, 4, 5, 6.0, 7.0};
    EXPECT_FALSE(JdToDate2(jd, date)) << jd;
    ExpectSame(date, {1, 2, 3, 4, 5, 6.0, 7.0});
  }
}

TEST(Calendar, RoundTripsAreExactOnTheGrid) {
  std::mt19937_64 random(4);
  std::uniform_real_distribution<double> within(2415020.5, 2488434.5);  // 1900 to 2100
  for (int i = 0; i < 100000 && !HasFailure(); ++i) {
    tagADATE a;
    tagADATE b;
    ASSERT_TRUE(JdToDate2(within(random), a));
    if (i % 2 == 0) a.second = 0.0;  // whole minutes stay whole
    const double jd = *GetJd(a);
    ASSERT_TRUE(JdToDate2(jd, b));
    ExpectSame(a, b);
    // The middle of two dates loses no more than the grid takes up again.
    tagADATE later = a;
    const auto ticks = static_cast<double>(random() % 72000000);
    ASSERT_TRUE(ChangeDate(later, ticks / 10000 * 2, Direction::kAdd));
    tagADATE mid;
    ASSERT_TRUE(JdToDate2((jd + *GetJd(later)) / 2, mid));
    ASSERT_TRUE(ChangeDate(a, ticks / 10000, Direction::kAdd));
    ASSERT_EQ(std::tie(a.day, a.hour, a.minute), std::tie(mid.day, mid.hour, mid.minute));
    ASSERT_NEAR(a.second, mid.second, 1e-9);
  }
}

TEST(Calendar, ChangeDateCarries) {
  const struct {
    tagADATE date;
    double seconds;
    Direction direction;
    tagADATE result;
  } kRows[] = {
      {{2023, 12, 31, 23, 59, 59.5, 0}, 0.5, Direction::kAdd, {2024, 1, 1, 0, 0, 0.0, 0}},
      {{2024, 3, 1, 0, 0, 0.0, 3}, 1.0, Direction::kSubtract, {2024, 2, 29, 23, 59, 59.0, 3}},
      {{2023, 3, 1, 0, 0, 10.0, 0}, -20.0, Direction::kAdd, {2023, 2, 28, 23, 59, 50.0, 0}},
      {{2023, 3, 1, 0, 0, 8.7, 0}, 0.2, Direction::kSubtract, {2023, 3, 1, 0, 0, 8.5, 0}},
      {{2023, 1, 1, 0, 0, 0.3, 0}, 0.3, Direction::kSubtract, {2023, 1, 1, 0, 0, 0.0, 0}},
      {{2023, 1, 1, 0, 0, 0.0, 0}, 1e-20, Direction::kSubtract, {2023, 1, 1, 0, 0, 0.0, 0}},
      {{2023, 13, 32, 25, 61, 61.0, 0}, 0.0, Direction::kAdd, {2024, 2, 2, 2, 2, 1.0, 0}},
      {{2000, 1, 1, 0, 0, 0.0, 0}, 86400.0 * 146097, Direction::kAdd, {2400, 1, 1, 0, 0, 0.0, 0}}};
  for (const auto& row : kRows) {
    tagADATE date = row.date;
    EXPECT_TRUE(ChangeDate(date, row.seconds, row.direction));
    ExpectSame(date, row.result);
    EXPECT_FALSE(std::signbit(date.second));
  }
  tagADATE date{2023, 1, 31, 0, 0, 0, 0};
  EXPECT_TRUE(ChangeDate(date, {1, 1, 1, 1, 1, 1.0, 5.0}, Direction::kAdd));
  ExpectSame(date, {2024, 3, 3, 1, 1, 1.0, 0});
  for (const double seconds : {kNan, kInf, -kInf, 1e300, 3e11, -3e11}) {
    EXPECT_FALSE(ChangeDate(date, seconds, Direction::kAdd)) << seconds;
    EXPECT_FALSE(ChangeTimezone(date, seconds));
  }
  ExpectSame(date, {2024, 3, 3, 1, 1, 1.0, 0});
}

TEST(Calendar, ZonesKeepTheInstant) {
  const struct {
    double hours;
    tagADATE result;
  } kRows[] = {{9.0, {2024, 1, 1, 8, 30, 0.0, 9.0}},
               {-5.5, {2023, 12, 31, 18, 0, 0.0, -5.5}},
               {341 / 60.0, {2024, 1, 1, 5, 11, 0.0, 341 / 60.0}}};
  for (const auto& row : kRows) {
    tagADATE date{2023, 12, 31, 23, 30, 0.0, 0.0};
    const double jd = *GetJd(date);
    ASSERT_TRUE(ChangeTimezone(date, row.hours));
    ExpectSame(date, row.result);
    EXPECT_NEAR(*GetJd(date), jd, 5e-10);
    ASSERT_TRUE(ChangeTimezone(date, 0.0));
    ExpectSame(date, {2023, 12, 31, 23, 30, 0.0, 0.0});
  }
}

}  // namespace
}  // namespace korin::calendar
