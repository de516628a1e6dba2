#include <gtest/gtest.h>

#include <climits>
#include <new>
#include <utility>

#include "header/header_cards.h"
#include "korinimage/fits.h"
#include "korinimage/header.h"

namespace {

using korin::test::Cards;
using korin::test::CardsOf;
using korin::test::Make;

const std::wstring kTen(10, L' ');

TEST(Cards, AddCutsToEightyColumns) {
  const std::wstring longCard = L"COMMENT " + std::wstring(92, L'c');
  CHeader header = Make({longCard});
  EXPECT_EQ(header.GetAt(0), longCard.substr(0, 80));
  header.InsertAt(0, longCard.c_str());
  header.SetAt(1, nullptr);
  header.Add(nullptr);
  EXPECT_EQ(CardsOf(header), (Cards{longCard.substr(0, 80), L"", L""}));
}

TEST(Cards, IndexesBeyondTheEnds) {
  CHeader header = Make({L"A", L"B"});
  header.InsertAt(5, L"F");
  EXPECT_EQ(CardsOf(header), (Cards{L"A", L"B", L"", L"", L"", L"F"}));
  header.InsertAt(1, L"A2");
  header.SetAt(7, L"no");
  EXPECT_EQ(header.DeleteAt(7), 0);
  EXPECT_EQ(header.GetAt(7), L"");
  EXPECT_EQ(header.DeleteAt(3), 1);
  EXPECT_EQ(CardsOf(header), (Cards{L"A", L"A2", L"B", L"", L"", L"F"}));

  for (const int i : {-1, INT_MIN}) {
    EXPECT_THROW(header.InsertAt(i, L"x"), korin::CInvalidArgException);
    EXPECT_THROW(header.SetAt(i, L"x"), std::invalid_argument);
    EXPECT_THROW(header.DeleteAt(i), korin::CInvalidArgException);
    EXPECT_THROW(header.GetAt(i), korin::CInvalidArgException);
    EXPECT_THROW(CHeader().GetAt(i), korin::CInvalidArgException);
  }
  for (const int i : {CHeader::kMaxPaddedCards, INT_MAX}) {
    EXPECT_THROW(header.InsertAt(i, L"x"), std::bad_alloc);
  }
  EXPECT_EQ(header.GetCount(), 6);
}

TEST(Cards, FindComparesTheKeywordField) {
  const CHeader header = Make({L"DATE-OBS= '2023-04-05'", L"DATE    = 'x'", L"END", L"        text",
                               L"date-obs= 'y'", L"END     "});
  const struct {
    const wchar_t* key;
    int index;
  } kRows[] = {{L"DATE", 1},         {L"DATE-OBS", 0}, {L"DATE-OBSX", 0}, {L"date-obs", 4},
               {L"END", 5},          {L"", 3},         {L"DAT", -1},      {L"DATE    = ", 1},
               {L"DATE-OBS-ABC", 0}, {nullptr, -1}};
  for (const auto& row : kRows) EXPECT_EQ(header.Find(row.key), row.index);
}

TEST(Cards, NumbersAreReadFromColumnTwelve) {
  const CHeader header =
      Make({L"NAXIS   =                    2 / axes", L"DIGIT   = 7", L"FREE    = 30.0",
            L"NEGFREE = -20.5", L"SHORT   = ", L"SHORTER ", L"QUOTED  = '12.5'", L"QUOTED2 = 'M13'",
            L"DOUBLE  =              1.5D+03 / d", L"WIDE    = 10000000000000000.00"});
  const struct {
    const wchar_t* key;
    int number;
    double real;
  } kRows[] = {{L"NAXIS", 2, 2.0},     {L"DIGIT", 0, 0.0},   {L"FREE", 0, 0.0},
               {L"NEGFREE", 20, 20.5}, {L"SHORT", 0, 0.0},   {L"SHORTER", 0, 0.0},
               {L"QUOTED", 12, 12.5},  {L"QUOTED2", 0, 0.0}, {L"DOUBLE", 1, 1500.0},
               {L"WIDE", 0, 0.0}};
  for (const auto& row : kRows) {
    int number = -99;
    double real = -99.0;
    EXPECT_EQ(header.GetHeaderInt(row.key, number), 1) << row.key;
    EXPECT_EQ(header.GetHeaderDouble(row.key, real), 1) << row.key;
    EXPECT_EQ(number, row.number) << row.key;
    EXPECT_EQ(real, row.real) << row.key;
  }
  int number = -99;
  double real = -99.0;
  for (const wchar_t* key : {L"ABSENT", static_cast<const wchar_t*>(nullptr)}) {
    EXPECT_EQ(header.GetHeaderInt(key, number), 0);
    EXPECT_EQ(header.GetHeaderDouble(key, real), 0);
  }
  EXPECT_EQ(number, -99);
  EXPECT_EQ(real, -99.0);
}

TEST(Cards, DeleteAllTakesContinuationsAlong) {
  const std::wstring a = L"HISTORY a";
  const std::wstring b = L"HISTORY b";
  const std::wstring object = L"OBJECT  = 'M13'";
  const std::wstring nine(9, L' ');
  const struct {
    Cards before;
    Cards after;
    const wchar_t* key = L"HISTORY";
  } kRows[] = {
      {{a, kTen + L"text", b}, {}},
      {{a, kTen + L"x", b, kTen + L"y", kTen + L"z", object, kTen + L"w"}, {object, kTen + L"w"}},
      {{kTen, a, nine, kTen}, {kTen, nine, kTen}},
      {{a, L"HISTORY", kTen}, {L"HISTORY", kTen}},
      {{a, L"", kTen, b}, {L"", kTen}},
      {{a, nine, kTen, object, kTen + L"x", L"  "}, {a, object, L"  "}, L""}};
  for (const auto& row : kRows) {
    CHeader header = Make(row.before);
    header.DeleteAll(row.key);
    EXPECT_EQ(CardsOf(header), row.after);
  }
  CHeader header = Make(kRows[1].before);
  header.DeleteAll();
  EXPECT_EQ(header.GetCount(), 0);
}

TEST(Cards, CopiesKeepEverythingEvenFromThemselves) {
  CHeader header = Make({L"A", L"B"});
  header.SetCameraMaker(L"Maker");
  header.SetGain(2.5F);
  header.SetExposureShutterSpeed({1.0, 250.0});
  header.SetWBShootingGainHoneyComb(7, 3.0);
  const auto expectWhole = [](const CHeader& h) {
    tagFRational speed;
    h.GetExposureShutterSpeed(speed);
    EXPECT_EQ(CardsOf(h), (Cards{L"A", L"B"}));
    EXPECT_STREQ(h.GetCameraMaker(), L"Maker");
    EXPECT_EQ(h.GetGain(), 2.5F);
    EXPECT_EQ(speed, (tagFRational{1.0, 250.0}));
    EXPECT_EQ(h.GetWBShootingGainHoneyComb(7), 3.0);
  };
  CHeader& self = header;
  EXPECT_EQ(&header.CopyData(&self), &header);
  header.CopyData(nullptr);
  header = self;
  header = std::move(self);
  header.SetCameraMaker(header.GetCameraMaker());
  expectWhole(header);

  expectWhole(CHeader(&self));
  EXPECT_EQ(CHeader(nullptr).GetCount(), 0);
  CHeader moved = std::move(header);
  expectWhole(moved);
  EXPECT_EQ(header.GetCount(), 0);  // NOLINT: a header moved from is an empty one
  EXPECT_STREQ(header.GetCameraMaker(), L"");
  EXPECT_FALSE(header.GetGain());
  header = Make({L"C"});
  swap(header, moved);
  expectWhole(header);
  EXPECT_EQ(CardsOf(moved), Cards{L"C"});
}

TEST(Cards, ClassesAndBytes) {
  const CHeader header;
  const CObject& object = header;
  EXPECT_STREQ(object.GetRuntimeClass()->m_lpszClassName, "CHeader");
  EXPECT_NE(object.GetRuntimeClass(), CObject().GetRuntimeClass());
  BYTE bytes[] = {1, 2, 3, 4};
  CFits::ByteSwap(&bytes[0], &bytes[3]);
  CFits::ByteSwap(&bytes[1], &bytes[2]);
  CFits::ByteSwap(bytes, bytes);
  CFits::ByteSwap(bytes, nullptr);
  EXPECT_EQ(std::vector<BYTE>(bytes, bytes + 4), (std::vector<BYTE>{4, 3, 2, 1}));
}

}  // namespace
