#include <gtest/gtest.h>

#include <cmath>

#include "header/header_cards.h"
#include "korinimage/header.h"

namespace {

using korin::test::kInf;
using korin::test::kNan;

TEST(CameraFields, ShutterSpeed) {
  const struct {
    tagFRational set;
    tagFRational kept;
    const wchar_t* text;
  } kRows[] = {{{1, 250}, {1, 250}, L"1/250 sec."},
               {{30, 1}, {30, 1}, L"30 sec."},
               {{0.5, 1}, {1, 2}, L"1/2 sec."},
               {{7, 2}, {3.5, 1}, L"3 sec."},
               {{1, 1}, {1, 1}, L"1 sec."},
               {{0, 1}, {1, kInf}, L"1/2147483647 sec."},
               {{-0.5, 1}, {1, -2}, L""},
               {{1e300, 1}, {1e300, 1}, L"2147483647 sec."},
               {{kInf, 1}, {kInf, 1}, L"2147483647 sec."},
               {{-1, 1}, {-1, 1}, L""},
               {{1, 0}, {-1, 1}, L""},
               {{kNan, 1}, {-1, 1}, L""},
               {{1, kNan}, {-1, 1}, L""},
               {{kInf, kInf}, {-1, 1}, L""}};
  for (const auto& row : kRows) {
    CHeader header;
    header.SetExposureShutterSpeed({2, 1});
    header.SetExposureShutterSpeed(row.set);
    tagFRational kept;
    std::wstring text;
    header.GetExposureShutterSpeed(kept);
    header.GetExposureShutterSpeed(text);
    EXPECT_EQ(kept, row.kept) << row.set.numerator << '/' << row.set.denominator;
    EXPECT_EQ(text, row.text);
  }
}

TEST(CameraFields, ApertureAndFocalLength) {
  const struct {
    tagFRational set;
    tagFRational kept;
    const wchar_t* text;
  } kRows[] = {{{28, 10}, {28, 10}, L"f/2.8"}, {{33, 4}, {33, 4}, L"f/8.2"},
               {{0, 1}, {0, 1}, L"f/0.0"},     {{-5, 1}, {-5, 1}, L""},
               {{1, -1}, {-1, 1}, L""},        {{1, kNan}, {-1, 1}, L""}};
  for (const auto& row : kRows) {
    CHeader header;
    header.SetExposureFNumber(row.set);
    header.SetFocalLength(row.set);
    tagFRational ratio;
    tagFRational length;
    std::wstring text;
    header.GetExposureFNumber(ratio);
    header.GetFocalLength(length);
    header.GetExposureFNumber(text);
    EXPECT_EQ(ratio, row.kept);
    EXPECT_EQ(length, row.kept);
    EXPECT_EQ(text, row.text);
  }
}

TEST(CameraFields, NoTextIsEmptyText) {
  CHeader header;
  header.SetCameraModel(L"Model");
  header.SetCameraModel(nullptr);
  EXPECT_STREQ(header.GetCameraModel(), L"");
}

TEST(CameraFields, GainsStayWithinTheirArrays) {
  CHeader header;
  for (const int i : {-1, 4, 8, 1000000}) {
    header.SetWBShootingGainBayer(i, 9.0);
    EXPECT_EQ(header.GetWBShootingGainBayer(i), 1.0);
  }
  header.SetWBShootingGainHoneyComb(8, 9.0);
  EXPECT_EQ(header.GetWBShootingGainHoneyComb(8), 1.0);
  const double bayer[] = {1.5, 2.5, 3.5, 4.5};
  header.SetWBShootingGainBayer(bayer);
  header.SetWBShootingGainBayer(2, 7.0);
  header.SetWBShootingGainBayer(static_cast<const double*>(nullptr));
  header.GetWBShootingGainHoneyComb(static_cast<double*>(nullptr));
  double read[8] = {};
  header.GetWBShootingGainBayer(read);
  EXPECT_EQ(std::vector<double>(read, read + 5), (std::vector<double>{1.5, 2.5, 7.0, 4.5, 0.0}));
  header.GetWBShootingGainHoneyComb(read);
  EXPECT_EQ(std::vector<double>(read, read + 8), std::vector<double>(8, 1.0));
}

}  // namespace
