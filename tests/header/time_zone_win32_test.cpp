#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "korinimage/header.h"
#include "platform/time_zone.h"

namespace {

// The system reads its zone when the process starts: each is a run of its own.
TEST(TimeZone, LocalStandardTimeOfAHeader) {
  const char* const set = std::getenv("TZ");
  const std::string zone = set == nullptr ? "" : std::string(set).substr(0, 3);
  if (zone != "AES" && zone != "EST" && zone != "UTC") {
    GTEST_SKIP() << "run once for each of some zones";
  }
  const int bias = zone == "AES" ? -600 : zone == "EST" ? 300 : 0;
  EXPECT_EQ(korin::platform::StandardBiasMinutes(), bias);
  CHeader header;
  for (const wchar_t* card :
       {L"DATE-OBS= '2023-12-31T12:00:00.5'", L"DATE-OBS= '2023-07-31T12:00:00.5'"}) {
    header.DeleteAll();
    header.Add(card);
    tagADATE date;
    ASSERT_EQ(header.GetDateTimeByLst(date), 1);
    EXPECT_EQ(date.day, 31);
    EXPECT_EQ(date.hour * 60 + date.minute, 720 - bias) << "no daylight saving at any time";
    EXPECT_EQ(date.timezone, -bias / 60.0);
  }
}

}  // namespace
