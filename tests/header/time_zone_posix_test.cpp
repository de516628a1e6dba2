#include <gtest/gtest.h>

#include <tuple>

#include "korinimage/header.h"
#include "platform/time_zone.h"
#include "support/scoped_variable.h"

namespace {

using korin::test::ScopedVariable;

TEST(TimeZone, StandardTimeWithoutDaylightSaving) {
  const struct {
    const char* zone;
    int bias;
  } kRows[] = {{"UTC0", 0},
               {"EST5EDT,M3.2.0,M11.1.0", 300},
               {"AEST-10AEDT,M10.1.0,M4.1.0/3", -600},
               {"IST-1GMT0,M10.5.0,M3.5.0/1", 0},  // winter is the "saving" time
               {"<+0545>-5:45", -345}};
  for (const auto& row : kRows) {
    const ScopedVariable zone("TZ", row.zone);
    EXPECT_EQ(korin::platform::StandardBiasMinutes(), row.bias) << row.zone;
  }
}

TEST(TimeZone, LocalStandardTimeOfAHeader) {
  const ScopedVariable zone("TZ", "AEST-10AEDT,M10.1.0,M4.1.0/3");
  CHeader header;
  header.Add(L"DATE-OBS= '2023-12-31T20:30:00.5'");
  header.Add(L"EXPTIME =                 60.0");
  tagADATE date;
  ASSERT_EQ(header.GetDateTimeByLst(date), 1);
  EXPECT_EQ(std::tie(date.year, date.month, date.day, date.hour, date.minute),
            std::make_tuple(2024, 1, 1, 6, 30));
  EXPECT_EQ(date.second, 0.5);
  EXPECT_EQ(date.timezone, 10.0);
  ASSERT_EQ(header.GetMidDateTimeByLst(date), 1);
  EXPECT_EQ(date.second, 30.5);
  EXPECT_EQ(date.timezone, 10.0);
  header.DeleteAll(L"EXPTIME");
  EXPECT_EQ(header.GetMidDateTimeByLst(date), 0);
}

}  // namespace
