#include "platform/text.h"

#include <gtest/gtest.h>

#include <random>

namespace korin::platform {
namespace {

// Units rather than characters: a lone surrogate has no literal.
std::wstring Units(std::initializer_list<unsigned> units) {
  std::wstring out;
  for (const unsigned unit : units) out += static_cast<wchar_t>(unit);
  return out;
}

bool CodePageIsUtf8() { return CutToColumns(L"\u20AC", 2).empty(); }

TEST(Text, Utf8BothWays) {
  const std::wstring wide = L"A\u00E9\u20AC\U0001F52D";
  const std::string utf8 = "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x94\xAD";
  EXPECT_EQ(ToUtf8(wide), utf8);
  EXPECT_EQ(FromUtf8(utf8), wide);
  EXPECT_EQ(ToUtf8(Units({0xD83D, 0xDD2D})), "\xF0\x9F\x94\xAD");  // a pair at any width
  EXPECT_EQ(ToUtf8(Units({'a', 0xD83D, 'b', 0xDC80})), "a?b?");
  if (sizeof(wchar_t) > 2) {
    EXPECT_EQ(ToUtf8(Units({0x110000, 0xFFFFFFFF})), "??");
  }
}

TEST(Text, BrokenUtf8) {
  const struct {
    const char* utf8;
    std::size_t replaced;
  } kRows[] = {{"\x80", 1},
               {"\xC0\xAF", 2},
               {"\xE2\x82", 2},
               {"\xED\xA0\x80", 3},
               {"\xF4\x90\x80\x80", 4},
               {"\xF0\x80\x80\x80", 4},
               {"\xE0\x80\x80", 3},
               {"\xFF", 1}};
  for (const auto& row : kRows) {
    const std::wstring expected =
        L"x" + std::wstring(row.replaced, static_cast<wchar_t>(0xFFFD)) + L"y";
    EXPECT_EQ(FromUtf8(std::string("x") + row.utf8 + "y"), expected) << row.utf8;
  }
}

TEST(Text, Utf16BothWays) {
  EXPECT_EQ(ToUtf16(L"a\U0001F52Db"), u"a\U0001F52Db");
  EXPECT_EQ(FromUtf16(u"a\U0001F52Db"), L"a\U0001F52Db");
  EXPECT_EQ(ToUtf16(L"a\U0001F52Db", 2), u"a");  // no half pair
  EXPECT_EQ(ToUtf16(L"a\U0001F52Db", 3), u"a\U0001F52D");
  EXPECT_EQ(ToUtf16(Units({0xDC00, 'a', 0xD800})), u"\uFFFDa\uFFFD");
  const char16_t lone[] = {0xDFFF, u'a', 0xD800, 0};
  EXPECT_EQ(FromUtf16(lone), L"\uFFFDa\uFFFD");
}

TEST(Text, CutToColumns) {
  EXPECT_EQ(CutToColumns(std::wstring(100, L'x'), 80), std::wstring(80, L'x'));
  EXPECT_EQ(CutToColumns(L"abc", 0), L"");
  EXPECT_EQ(CutToColumns(L"abc", -1), L"");
  if (!CodePageIsUtf8()) GTEST_SKIP() << "the rest is about UTF-8 as code page";
  const std::wstring x79(79, L'x');
  EXPECT_EQ(CutToColumns(x79 + L"\u00E9z", 80), x79);
  EXPECT_EQ(CutToColumns(std::wstring(78, L'x') + L"\u00E9z", 80),
            std::wstring(78, L'x') + L"\u00E9");
  EXPECT_EQ(CutToColumns(std::wstring(50, L'\u00E9'), 80), std::wstring(40, L'\u00E9'));
  EXPECT_EQ(CutToColumns(Units({'a', 0xD800, 'b'}), 80), L"a?b");
}

TEST(Text, PathsComeBackWhole) {
  EXPECT_EQ(PathToWide(std::filesystem::path(u8"a\u20AC")), L"a\u20AC");
  EXPECT_EQ(WideToPath(L"a\u20AC"), std::filesystem::path(u8"a\u20AC"));
  if (!CodePageIsUtf8()) GTEST_SKIP() << "the rest is about byte paths";
  EXPECT_EQ(PathToWide(std::filesystem::path("a\xFF\x80\xC3\xA9")),
            Units({'a', 0xDCFF, 0xDC80, 0xE9}));
  std::mt19937 random(2);
  for (int i = 0; i < 2000; ++i) {
    std::string bytes;
    for (int k = 0; k < 12; ++k) bytes += static_cast<char>(random() % 255 + 1);
    const std::filesystem::path path(bytes);
    ASSERT_EQ(WideToPath(PathToWide(path)).string(), bytes);
  }
}

}  // namespace
}  // namespace korin::platform
