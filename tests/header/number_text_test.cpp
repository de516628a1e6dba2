#include "header/number_text.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <map>

namespace korin::header {
namespace {

TEST(NumberText, Integers) {
  for (const auto* text : {L"", L"   ", L"- 7", L"+-7", L"'7'", L"0x10", L"\u0661"}) {
    EXPECT_EQ(ParseInt(text), 0) << text;
  }
  EXPECT_EQ(ParseInt(L" \t\n 42 / comment"), 42);
  EXPECT_EQ(ParseInt(L"+7"), 7);
  EXPECT_EQ(ParseInt(L"-7.9"), -7);
  for (const auto* text : {L"2147483647", L"2147483648", L"4294967297", L"99999999999999999999"}) {
    EXPECT_EQ(ParseInt(text), INT_MAX) << text;
  }
  for (const auto* text : {L"-2147483648", L"-2147483649", L"-99999999999999999999"}) {
    EXPECT_EQ(ParseInt(text), INT_MIN) << text;
  }
}

TEST(NumberText, Reals) {
  constexpr double kInf = std::numeric_limits<double>::infinity();
  for (const auto* text : {L"", L".", L".e5", L"0x1p4", L"inf", L"-nan", L"'3'", L"1e-400",
                           L"0e99999999999", L"1e-99999999999"}) {
    EXPECT_EQ(ParseReal(text), 0.0) << text;
  }
  const std::map<std::wstring, double> others = {
      {L"1.5D3", 1500.0}, {L"1.5d-3", 0.0015},   {L"73.", 73.0},   {L".5", 0.5},
      {L"+.5e1x", 5.0},   {L"2e", 2.0},          {L"2e+", 2.0},    {L"2D / x", 2.0},
      {L"12,5", 12.0},    {L"1.2.3", 1.2},       {L"1e400", kInf}, {L"-1E400", -kInf},
      {L"0.1", 0.1},      {L" 1.0E+00 / s", 1.0}};
  for (const auto& [text, value] : others) EXPECT_EQ(ParseReal(text), value) << text;
  EXPECT_EQ(ParseReal(L"-0.00027770002"), -0.00027770002);
  EXPECT_EQ(ParseReal(L"1e99999999999"), kInf);
  EXPECT_EQ(ParseReal(L"0.000000000000000000001e320"), 1e299);
  constexpr double kManyDigits = 1797693134862315708145274237317e278;
  EXPECT_EQ(ParseReal(L"1797693134862315708145274237317e278"), kManyDigits);
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
