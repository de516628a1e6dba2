#include <gtest/gtest.h>
#include <stdlib.h>

#include <optional>
#include <string>

#include "korinimage/header.h"
#include "platform/time_zone.h"

namespace {

class TimeZone : public ::testing::Test {
 protected:
  ~TimeZone() override {
    if (m_before) {
      setenv("TZ", m_before->c_str(), 1);
    } else {
      unsetenv("TZ");
    }
  }

 private:
  std::optional<std::string> m_before =
      getenv("TZ") == nullptr ? std::nullopt : std::optional<std::string>(getenv("TZ"));
};

TEST_F(TimeZone, StandardTimeWithoutDaylightSaving) {
  const struct {
    const char* zone;
    int bias;
  } kRows[] = {{"UTC0", 0},
               {"EST5EDT,M3.2.0,M11.1.0", 300},
               {"AEST-10AEDT,M10.1.0,M4.1.0/3", -600},
               {"IST-1GMT0,M10.5.0,M3.5.0/1", 0},  // winter is the "saving" time
               {"<+0545>-5:45", -345}};
  for (const auto& row : kRows) {
    setenv("TZ", row.zone, 1);
    EXPECT_EQ(korin::platform::StandardBiasMinutes(), row.bias) << row.zone;
  }
}

TEST_F(TimeZone, LocalStandardTimeOfAHeader) {
  setenv("TZ", "AEST-10AEDT,M10.1.0,M4.1.0/3", 1);
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
