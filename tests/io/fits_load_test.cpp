#include <cmath>

#include "io_fixture.h"
#include "support/recording_progress.h"
#include "tile_files.h"

namespace korin::test {
namespace {

class LoadFitsTest : public IoTest {
 protected:
  std::filesystem::path Write(const std::vector<std::string>& cards, const Bytes& data,
                              const std::string& name = "x.fits") const {
    WriteBytes(Path(name), Unit(cards, data));
    return Path(name);
  }
  static std::vector<std::string> Head(int bitpix, const std::vector<int>& axes) {
    std::vector<std::string> cards = {"SIMPLE  = T", "BITPIX  = " + std::to_string(bitpix),
                                      "NAXIS   = " + std::to_string(axes.size())};
    for (std::size_t i = 0; i < axes.size(); ++i) {
      cards.push_back("NAXIS" + std::to_string(i + 1) + "  = " + std::to_string(axes[i]));
    }
    return cards;
  }
  static std::vector<std::string> With(std::vector<std::string> cards,
                                       const std::vector<std::string>& more) {
    cards.insert(cards.end(), more.begin(), more.end());
    return cards;
  }
};

// Whatever the characters, also those that no code page has together.
TEST_F(LoadFitsTest, OpensFilesOfAnyName) {
  const auto file = m_folder / u8"\u00E9 \u65E5 \u0416.fits";
  std::filesystem::rename(Write(Head(8, {2, 1}), {7, 9}), file);
  EXPECT_EQ(Pixels(*LoadFits(m_manager, file)), (Bytes{7, 9}));
}

TEST_F(LoadFitsTest, RecognisesTheConventionsForIntegers) {
  const auto data16 = BigEndian<std::int16_t>({-32768, -1, 0, 32767});
  const auto u16 = LoadFits(
      m_manager, Write(With(Head(16, {2, 2}), {"BSCALE  = 1", "BZERO   = 3.2768E4"}), data16));
  EXPECT_FALSE(u16->IsSigned());
  EXPECT_EQ(u16->GetBzero(), 0.0);
  EXPECT_EQ(As<std::uint16_t>(Pixels(*u16)), (std::vector<std::uint16_t>{0, 32767, 32768, 65535}));

  const auto u32 = LoadFits(m_manager, Write(With(Head(32, {2, 1}), {"BZERO   = 2147483648"}),
                                             BigEndian<std::int32_t>({-2147483647 - 1, 5})));
  EXPECT_FALSE(u32->IsSigned());
  EXPECT_EQ(As<std::uint32_t>(Pixels(*u32)), (std::vector<std::uint32_t>{0, 2147483653U}));

  // Anything else is scaling, whatever it looks like.
  const auto scaled = LoadFits(
      m_manager, Write(With(Head(16, {2, 2}), {"BSCALE  = 2.0", "BZERO   = 32768"}), data16));
  EXPECT_TRUE(scaled->IsSigned());
  EXPECT_EQ(scaled->GetBscale(), 2.0);
  EXPECT_EQ(scaled->GetBzero(), 32768.0);
  EXPECT_EQ(As<std::int16_t>(Pixels(*scaled)), (std::vector<std::int16_t>{-32768, -1, 0, 32767}));
  const auto bytes =
      LoadFits(m_manager, Write(With(Head(8, {3, 1}), {"BZERO   = -128"}), {0, 128, 255}));
  EXPECT_EQ(bytes->GetBzero(), -128.0);
  EXPECT_EQ(Pixels(*bytes), (Bytes{0, 128, 255}));
}

// Numbers that a fixed-column reader would misread: free format, lower-case and D
// exponents, a sign in the first column.
TEST_F(LoadFitsTest, TakesNumbersInAnyFormat) {
  const auto image = LoadFits(
      m_manager,
      Write(With(Head(16, {1, 1}), {"BSCALE  =-2.5D-1 / c", "BZERO   =       1e3"}), {0, 4}));
  EXPECT_EQ(image->GetBscale(), -0.25);
  EXPECT_EQ(image->GetBzero(), 1000.0);
  EXPECT_EQ(image->Header().GetAt(5), L"BSCALE  =-2.5D-1 / c" + std::wstring(60, L' '));
}

TEST_F(LoadFitsTest, KeepsRowsAndPlanesInFileOrder) {
  const auto sink = std::make_shared<RecordingProgress>();
  const auto image = LoadFits(
      m_manager, Write(Head(16, {2, 2, 2}), BigEndian<std::int16_t>({1, 2, 3, 4, 5, 6, 7, 8})), {},
      sink);
  EXPECT_EQ(As<std::int16_t>(Pixels(*image)), (std::vector<std::int16_t>{1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(image->GetPixel(0, 1, 1), 7.0);
  EXPECT_EQ(image->GetDimension(), 3);
  EXPECT_EQ(sink->calls.front(), "initialize");
  EXPECT_EQ(sink->calls.back(), "finalize");
  EXPECT_FALSE(sink->updates.empty());
}

TEST_F(LoadFitsTest, IgnoresAxesOfOnePixelAndRefusesTooMany) {
  const Bytes data = {1, 2, 3, 4, 5, 6};
  const auto cube = DescribeFits(Write(Head(8, {2, 1, 1, 3}), data));
  EXPECT_EQ(cube.height, 1);
  EXPECT_EQ(cube.planes, 3);
  EXPECT_EQ(DescribeFits(Write(Head(8, {6, 1, 1}), data)).width, 6);
  EXPECT_THROW(DescribeFits(Write(Head(8, {6}), data)), FileError);
  EXPECT_THROW(DescribeFits(Write(Head(8, {1, 1, 2, 3}), data)), FileError);
}

TEST_F(LoadFitsTest, FindsTheImageAmongTheUnits) {
  auto bytes = Unit(Head(8, {}), {});
  for (const int value : {7, 9}) {
    const auto extension = Unit({"XTENSION= 'IMAGE   '", "BITPIX  = 8", "NAXIS   = 2",
                                 "NAXIS1  = 2", "NAXIS2  = 1", "PCOUNT  = 0", "GCOUNT  = 1"},
                                {static_cast<std::uint8_t>(value), 0});
    bytes.insert(bytes.end(), extension.begin(), extension.end());
  }
  WriteBytes(Path("e.fits"), bytes);
  EXPECT_EQ(LoadFits(m_manager, Path("e.fits"))->GetPixel(0, 0, 0), 7.0);
  EXPECT_EQ(LoadFits(m_manager, Path("e.fits"), {2})->GetPixel(0, 0, 0), 9.0);
  EXPECT_EQ(DescribeFits(Path("e.fits")).hdu, 1);
  for (const int unit : {0, 3, -2}) {
    EXPECT_THROW(DescribeFits(Path("e.fits"), {unit}), FileError) << unit;
  }
  EXPECT_THROW(DescribeFits(Write(Head(8, {}), {})), FileError);
}

// A name is a name: no part of it selects a unit, a region or a filter.
TEST_F(LoadFitsTest, TakesNamesLiterally) {
  for (const char* name : {"a[0].fits", "b(1).fits", " c.fits", "!d.fits", "-"}) {
    const auto file = Write(Head(8, {1, 1}), {42}, name);
    EXPECT_EQ(LoadFits(m_manager, file)->GetPixel(0, 0, 0), 42.0) << name;
  }
}

TEST_F(LoadFitsTest, NamesWhatIsWrong) {
  const auto problem = [](const std::filesystem::path& file) -> std::string {
    try {
      DescribeFits(file);
    } catch (const FileError& error) {
      return error.what();
    }
    return "none";
  };
  EXPECT_NE(problem(Path("none")).find("does not exist"), std::string::npos);
  EXPECT_NE(problem(m_folder).find("not a regular file"), std::string::npos);
  WriteBytes(Path("z"), {0x1F, 0x8B, 8, 0});
  EXPECT_NE(problem(Path("z")).find("gzip"), std::string::npos);
  WriteBytes(Path("t"), {'h', 'e', 'l', 'l', 'o'});
  EXPECT_NE(problem(Path("t")).find("SIMPLE"), std::string::npos);
  EXPECT_NE(problem(Write(Head(64, {1, 1}), RandomBytes(8, 1))).find("BITPIX 64"),
            std::string::npos);
  const std::string lie = problem(Write(Head(-64, {4000, 4000}), {1, 2, 3}));
  EXPECT_NE(lie.find("128000000 bytes, but only 2880"), std::string::npos) << lie;
}

struct Compression {
  const char* name;
  int method;
  int bitpix;
  long tileHeight;
};

class CompressedTest : public LoadFitsTest, public ::testing::WithParamInterface<Compression> {
 protected:
  static constexpr int kWidth = 120;
  static constexpr int kHeight = 90;
  static constexpr std::int64_t kPixels = kWidth * kHeight;

  // Smooth enough to compress, different in every pixel's neighbourhood.
  static std::vector<double> Values(bool positive) {
    std::vector<double> values;
    for (int i = 0; i < kPixels; ++i) {
      values.push_back((i % kWidth) + (i * 7919 % 13) - (positive ? 0 : 60));
    }
    return values;
  }
};

TEST_P(CompressedTest, GivesThePixelsThatWentIn) {
  const Compression& how = GetParam();
  const bool isUnsigned = how.bitpix == USHORT_IMG;
  const auto values = Values(how.bitpix == BYTE_IMG || isUnsigned || how.method == PLIO_1);
  // In the type of the image: the library compresses no other.
  const auto write = [&](auto kind, int type) {
    const std::vector<decltype(kind)> native(values.begin(), values.end());
    WriteTiles(Path("c.fits"), {how.method, how.bitpix, kWidth, how.tileHeight}, type, native);
  };
  if (how.bitpix == BYTE_IMG) write(std::uint8_t{}, TBYTE);
  if (how.bitpix == SHORT_IMG) write(short{}, TSHORT);
  if (isUnsigned) write(std::uint16_t{}, TUSHORT);
  if (how.bitpix == LONG_IMG) write(int{}, TINT);
  if (how.bitpix == FLOAT_IMG) write(float{}, TFLOAT);

  const auto image = LoadFits(m_manager, Path("c.fits"));
  EXPECT_EQ(image->GetBitsPixel(), isUnsigned ? 16 : how.bitpix);
  EXPECT_EQ(image->IsSigned(), how.bitpix != BYTE_IMG && !isUnsigned);
  for (int i = 0; i < kPixels; ++i) {
    double stored = image->GetPixel(i % kWidth, i / kWidth, 0);
    // Pixels of 16 bits are read unsigned.
    if (how.bitpix == SHORT_IMG) stored = static_cast<std::int16_t>(static_cast<int>(stored));
    ASSERT_EQ(stored, values[static_cast<std::size_t>(i)]) << "pixel " << i;
  }
  // The header is the image's, not the table's.
  const CHeader& header = image->Header();
  EXPECT_EQ(header.GetAt(0).substr(0, 9), L"SIMPLE  =");
  int bitpix = 0;
  EXPECT_EQ(header.GetHeaderInt(L"BITPIX", bitpix), 1);
  EXPECT_EQ(bitpix, isUnsigned ? 16 : how.bitpix);
  EXPECT_GE(header.Find(L"OBJECT"), 0);
  for (const wchar_t* key : {L"ZBITPIX", L"TFIELDS", L"TTYPE1", L"ZCMPTYPE", L"ZNAXIS1"}) {
    EXPECT_LT(header.Find(key), 0);
  }
}

INSTANTIATE_TEST_SUITE_P(Methods, CompressedTest,
                         ::testing::Values(Compression{"rice8", RICE_1, BYTE_IMG, 1},
                                           Compression{"rice16", RICE_1, SHORT_IMG, 1},
                                           Compression{"riceU16", RICE_1, USHORT_IMG, 16},
                                           Compression{"rice32", RICE_1, LONG_IMG, 7},
                                           Compression{"gzip16", GZIP_1, SHORT_IMG, 1},
                                           Compression{"gzip2U16", GZIP_2, USHORT_IMG, 90},
                                           Compression{"gzip2float", GZIP_2, FLOAT_IMG, 1},
                                           Compression{"plio16", PLIO_1, SHORT_IMG, 10},
                                           Compression{"hcomp16", HCOMPRESS_1, SHORT_IMG, 16},
                                           Compression{"hcompU16", HCOMPRESS_1, USHORT_IMG, 30},
                                           Compression{"hcomp32", HCOMPRESS_1, LONG_IMG, 16}),
                         [](const auto& test) { return std::string(test.param.name); });

// Tiles of scaled integers: close values, and missing ones come back as NaN.
TEST_F(CompressedTest, RestoresMissingValuesOfQuantizedTiles) {
  std::vector<float> values;
  for (int i = 0; i < kPixels; ++i) {
    values.push_back(static_cast<float>(1000.0 + 30.0 * std::sin(i * 0.7) + i % 17));
  }
  values[5] = -99.0F;
  WriteTiles(Path("q.fits"), {RICE_1, FLOAT_IMG, kWidth, 1, 16.0F}, TFLOAT, values, -99.0F);
  const auto image = LoadFits(m_manager, Path("q.fits"));
  const auto read = As<float>(Pixels(*image));
  EXPECT_TRUE(std::isnan(read[5]));
  for (std::size_t i = 6; i < read.size(); ++i) ASSERT_NEAR(read[i], values[i], 5.0) << i;
}

}  // namespace
}  // namespace korin::test
