// Where every value lies in the mappings, byte for byte.
#include <cstring>

#include "exchange/exchange_fixture.h"

namespace korin::test {
namespace {

using Ints = std::vector<std::int32_t>;
using Doubles = std::vector<double>;
using namespace std::string_literals;

// Bytes of a mapping, addressed by offset.
struct Bytes {
  std::vector<BYTE> bytes;

  // Values of one type, one behind the other.
  template <typename Values>
  void Expect(std::size_t offset, const Values& expected) const {
    Values values = expected;
    std::memcpy(values.data(), bytes.data() + offset, values.size() * sizeof values[0]);
    EXPECT_EQ(values, expected) << "at " << offset;
  }
  template <typename Values>
  void Set(std::size_t offset, const Values& values) {
    std::memcpy(bytes.data() + offset, values.data(), values.size() * sizeof values[0]);
  }
  void ExpectMarks(std::size_t from, std::size_t to) const {
    Expect(from, std::vector<BYTE>(to - from, 0xAA));
  }
};

class LayoutTest : public ExchangeTest {
 protected:
  void SetUp() override { ASSERT_EQ(CSharedMem::CreateFileMappings(1), 1); }

  // What writing the attributes puts into a mapping; bytes not written stay marked.
  static Bytes WrittenTo(const Mapping& which, const CImage& image) {
    SetRawBytes(which, std::vector<BYTE>(static_cast<std::size_t>(which.size), 0xAA));
    EXPECT_EQ(Write(image, false), 1);
    return {RawBytes(which)};
  }
  CImage SmallImage() const {
    return CImage(m_manager, CImage::DataTypeInt8, 2, 2, 1, 1.0, 0.0, false, kSilent);
  }
};

TEST_F(LayoutTest, ImageFieldsAreWrittenAtTheirOffsets) {
  CImage image = MakeSample({16, true}, 1, {5, 4, 2});
  image.SetSaveableFormat(true);
  image.SetOrgHoneyCombImage(true);
  image.SetBayerImage(true);
  const Bytes b = WrittenTo(kImageMapping, image);
  b.Expect(0, Ints{16, 1, 5, 4, 2});
  b.Expect(24, Doubles{0.25, -1e10, -0.5, 0.5});
  b.Expect(64, Doubles{1000.0, 1001.0});
  b.Expect(88, Ints{1, 1, 1});
  b.Expect(100, u"M 31 \u00e4\u3042 \U0001F52D.fits\0"s);
  b.Expect(612, u"FITS\0"s);
  b.Expect(1124, Ints{-7, 4, 1, 1, 1, 6000, -1, 1, 1, 14, 0});
  // Padding, the levels of a third plane and what follows a text stay.
  b.ExpectMarks(20, 24);
  b.ExpectMarks(56, 64);
  b.ExpectMarks(80, 88);
  b.ExpectMarks(100 + 2 * 16, 612);
  b.ExpectMarks(612 + 2 * 5, 1124);
}

TEST_F(LayoutTest, HeaderFieldsAreWrittenAtTheirOffsets) {
  CImage image = MakeSample({8, false}, 1, {5, 4, 1});
  image.Header().SetCFAPattern(3);
  const Bytes b = WrittenTo(kHeaderMapping, image);
  b.Expect(0, u"SIMPLE  =                    T\0"s);
  b.Expect(162, u" \0"s);  // the empty card
  b.Expect(324, u"COMMENT with \u00e9"s);
  // Behind the last card only the first unit of a slot is cleared.
  for (std::size_t slot = 3; slot < 256; ++slot) {
    b.Expect(162 * slot, u"\0"s);
    b.ExpectMarks(162 * slot + 2, 162 * (slot + 1));
  }
  b.Expect(41472, Doubles{1.0, 250.0, 28.0, 10.0});
  b.Expect(41504, u"\uFFFFstars\0"s);  // in front the sensitivity
  b.Expect(42024, Doubles{-1.0, 1.0});
  b.Expect(42040, u"maker\0"s);
  b.Expect(42552, u"model\0"s);
  b.Expect(43064, Ints{-3});
  b.Expect(43072, Doubles{0.125, 1.125, 2.125, 3.125, -0.125, -1.125, -2.125, -3.125, -4.125,
                          -5.125, -6.125, -7.125});
  b.ExpectMarks(42018, 42024);
  b.ExpectMarks(43068, 43072);
}

TEST_F(LayoutTest, BytesOfAnotherWriterAreRead) {
  Bytes b{std::vector<BYTE>(wire::image::kBytes)};
  b.Set(0, Ints{-64, 256, 7, 6, 3});                                    // any nonzero flag is set
  b.Set(24, Doubles{2.0, std::nan(""), 0.0, 0.0, 5.0, 0.0, 0.0, 5.0});  // plane 2: equal ends
  b.Set(100, std::u16string(256, u'x'));                                // without an end mark
  b.Set(612, u"\xD83D lone"s);
  b.Set(1144, Ints{-5, 0, 0, 0, 0, -1});
  SetRawBytes(kImageMapping, b.bytes);
  Bytes h{std::vector<BYTE>(wire::header::kBytes)};
  h.Set(0, std::u16string(81, u'k'));  // without an end mark
  h.Set(162, u"OBJECT"s);
  h.Set(2 * 162 + 2, u"behind an empty slot"s);
  h.Set(41472, Doubles{30.0, 10.0});
  h.Set(41506, std::u16string(256, u'l'));
  h.Set(43064, Ints{2});
  h.Set(43160, Doubles{8.5});
  SetRawBytes(kHeaderMapping, h.bytes);

  CImage image = SmallImage();
  image.Header().Add(L"KEPT");
  ASSERT_EQ(Read(image, false), 1);
  EXPECT_EQ(image.GetBitsPixel(), CImage::DataTypeDouble);
  EXPECT_TRUE(image.IsSigned());
  EXPECT_EQ(image.GetDimension(), 3);
  EXPECT_EQ(image.GetAxes(), (std::array<std::int32_t, 3>{7, 6, 3}));
  EXPECT_TRUE(std::isnan(image.GetBzero()));
  EXPECT_EQ(image.GetLevelMax(), (std::vector<double>{1.0, 1.0, 6.0}));
  EXPECT_EQ(image.GetOrgFileName(), std::wstring(256, L'x'));
  EXPECT_EQ(image.GetOrgFileFormat(), L"\xFFFD lone");
  EXPECT_EQ(image.GetOrgWidth(), -5);
  EXPECT_TRUE(image.IsDevelopmentImage());
  EXPECT_EQ(image.Store()->GetWidth(), 2) << "the store is not touched without pixels";
  const CHeader& header = image.Header();
  ASSERT_EQ(header.GetCount(), 3);
  EXPECT_EQ(header.GetAt(0), L"KEPT");
  EXPECT_EQ(header.GetAt(1), std::wstring(80, L'k'));
  EXPECT_EQ(header.GetAt(2), L"OBJECT");
  tagFRational speed;
  header.GetExposureShutterSpeed(speed);
  EXPECT_EQ(speed, (tagFRational{3.0, 1.0}));  // normalised by its setter
  EXPECT_EQ(header.GetLightSource(), std::wstring(256, L'l'));
  EXPECT_EQ(header.IsWBShootingGain(), 2);
  EXPECT_EQ(header.GetWBShootingGainHoneyComb(7), 8.5);
}

TEST_F(LayoutTest, LongTextsAndManyCardsAreCut) {
  CImage image = SmallImage();
  // The pair that would cross the limit of 255 units is left out whole.
  image.SetOrgFileName(std::wstring(254, L'n') + platform::FromUtf8("\xF0\x9F\x94\xAD"));
  image.Header().SetCameraModel(std::wstring(400, L'm').c_str());
  for (int i = 0; i < 300; ++i) image.Header().Add(std::to_wstring(i).c_str());
  WrittenTo(kImageMapping, image).Expect(100, std::u16string(254, u'n') + u'\0');
  CImage received;
  ASSERT_EQ(Read(received, false), 1);
  EXPECT_EQ(received.Header().GetCameraModel(), std::wstring(255, L'm'));
  ASSERT_EQ(received.Header().GetCount(), 256);
  EXPECT_EQ(received.Header().GetAt(255), L"255");
}

TEST_F(LayoutTest, PixelsAreFloatsOfUnsignedValuesPlaneAfterPlane) {
  for (const int policy : {0, 1, 2}) {
    const Shape shape{3, 2, 2};
    std::vector<std::int16_t> pixels(12);
    for (std::size_t i = 0; i < 12; ++i) pixels[i] = static_cast<std::int16_t>(i);
    pixels[7] = -1;
    pixels[11] = -32768;
    const auto manager = MakeSampleManager(policy);
    const CImage image = MakeImage(manager, shape, pixels);
    ASSERT_EQ(Write(image), 1);
    std::vector<float> floats;
    for (const auto pixel : pixels) floats.push_back(static_cast<std::uint16_t>(pixel));
    Bytes{RawBytes(kPixelMapping, 4 * 12)}.Expect(0, floats);
    CImage received;
    ASSERT_EQ(CSharedMem::ReadSharedMemory(manager, &received, 1), 1);
    EXPECT_EQ(ReadPixels<std::int16_t>(received), pixels);
    EXPECT_TRUE(received.IsSigned());
  }
}

TEST_F(LayoutTest, ReceivedFloatsAreTruncatedToTheirLowBits) {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  const std::vector<float> floats = {300.7F,        -1.0F,     -0.9F,         255.999F,
                                     -257.5F,       70000.0F,  2147483520.0F, -2147483648.0F,
                                     2147483648.0F, kInfinity, std::nanf(""), 1e-30F};
  Bytes mapping{std::vector<BYTE>(4 * floats.size())};
  mapping.Set(0, floats);
  const std::vector<std::uint16_t> expected = {300,   65535, 0, 255, 65279, 4464,
                                               65408, 0,     0, 0,   0,     0};
  const auto check = [&]<typename T>(std::type_identity<T>) {
    const Shape shape{4, 3, 1};
    ASSERT_EQ(Write(MakeImage(m_manager, shape, std::vector<T>(12, 9))), 1);
    SetRawBytes(kPixelMapping, mapping.bytes);
    CImage received;
    ASSERT_EQ(Read(received), 1);
    std::vector<T> low;
    for (const std::uint16_t value : expected) low.push_back(static_cast<T>(value));
    EXPECT_EQ(ReadPixels<T>(received), low);
  };
  check(std::type_identity<std::uint8_t>());  // 300.7 becomes 44
  check(std::type_identity<std::uint16_t>());
}

}  // namespace
}  // namespace korin::test
