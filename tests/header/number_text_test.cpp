#include "header/number_text.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>

namespace korin::header {
namespace {

TEST(NumberText, Integers) {
  const struct {
    const wchar_t* text;
    int value;
  } kRows[] = {{L"", 0},
               {L"   ", 0},
               {L" \t\n 42 / comment", 42},
               {L"+7", 7},
               {L"-7.9", -7},
               {L"- 7", 0},
               {L"+-7", 0},
               {L"'7'", 0},
               {L"0x10", 0},
               {L"2147483647", INT_MAX},
               {L"2147483648", INT_MAX},
               {L"-2147483648", INT_MIN},
               {L"-2147483649", INT_MIN},
               {L"4294967297", INT_MAX},
               {L"99999999999999999999999999", INT_MAX},
               {L"-99999999999999999999999999", INT_MIN},
               {L"\u0661", 0}};
  for (const auto& row : kRows) EXPECT_EQ(ParseInt(row.text), row.value) << row.text;
}

TEST(NumberText, Reals) {
  constexpr double kInf = std::numeric_limits<double>::infinity();
  const struct {
    const wchar_t* text;
    double value;
  } kRows[] = {{L"", 0.0},
               {L"  1.000000E+00 / s", 1.0},
               {L"1.5D3", 1500.0},
               {L"1.5d-3", 0.0015},
               {L"73.", 73.0},
               {L".5", 0.5},
               {L"+.5e1x", 5.0},
               {L".", 0.0},
               {L".e5", 0.0},
               {L"-0.00027770002", -0.00027770002},
               {L"2e", 2.0},
               {L"2e+", 2.0},
               {L"2D / x", 2.0},
               {L"12,5", 12.0},
               {L"0x1p4", 0.0},
               {L"inf", 0.0},
               {L"-nan", 0.0},
               {L"'3'", 0.0},
               {L"1.2.3", 1.2},
               {L"1e400", kInf},
               {L"-1E400", -kInf},
               {L"1e-400", 0.0},
               {L"0e99999999999", 0.0},
               {L"1e99999999999", kInf},
               {L"1e-99999999999", 0.0},
               {L"0.000000000000000000001e320", 1e299},
               {L"1797693134862315708145274237317e278", 1797693134862315708145274237317e278},
               {L"0.1", 0.1}};
  for (const auto& row : kRows) EXPECT_EQ(ParseReal(row.text), row.value) << row.text;
  EXPECT_EQ(ParseReal(std::wstring(400, L'9')), kInf);
  EXPECT_EQ(ParseReal(L"0." + std::wstring(400, L'0') + L"1"), 0.0);
  EXPECT_EQ(ParseReal(std::wstring(400, L'0') + L"1.5"), 1.5);
}

TEST(NumberText, Printing) {
  EXPECT_EQ(FormatInt(5, 2, L'0'), L"05");
  EXPECT_EQ(FormatInt(-123, 6, L' '), L"  -123");
  EXPECT_EQ(FormatInt(12345, 2, L'0'), L"12345");
  EXPECT_EQ(FormatFixed(8.25, 1, 4, L'0'), L"08.2");  // a tie, to even
  EXPECT_EQ(FormatFixed(8.35, 1, 4, L'0'), L"08.3");  // below the tie in binary
  EXPECT_EQ(FormatFixed(59.96, 1, 4, L'0'), L"60.0");
  EXPECT_EQ(FormatFixed(-0.0, 1, 4, L'0'), L"00.0");
  EXPECT_EQ(FormatFixed(300.0, 2, 20, L' '), L"              300.00");
  EXPECT_EQ(FormatFixed(1.7e308, 3, 20, L' ').size(), 313U);
  EXPECT_EQ(SaturateToInt(-1.9), -1);
  EXPECT_EQ(SaturateToInt(1e300), INT_MAX);
  EXPECT_EQ(SaturateToInt(-INFINITY), INT_MIN);
  EXPECT_EQ(SaturateToInt(NAN), 0);
}

}  // namespace
}  // namespace korin::header
