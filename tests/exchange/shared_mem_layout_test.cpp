// Where every value lies in the mappings, byte for byte.
#include <cstring>

#include "exchange/exchange_fixture.h"

namespace korin::test {
namespace {

constexpr std::int64_t kImageBytes = 1168;
constexpr std::int64_t kHeaderBytes = 43168;
constexpr std::int64_t kPixelBytes = 300120000;

// Bytes of a mapping, addressed by offset.
struct Bytes {
  std::vector<BYTE> bytes;

  template <typename T>
  T At(std::size_t offset) const {
    T value;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
  }
  int Int(std::size_t offset) const { return At<std::int32_t>(offset); }
  double Double(std::size_t offset) const { return At<double>(offset); }
  std::u16string Units(std::size_t offset, std::size_t count) const {
    std::u16string units(count, u'\0');
    std::memcpy(units.data(), bytes.data() + offset, 2 * count);
    return units;
  }
  template <typename T>
  void Set(std::size_t offset, T value) {
    std::memcpy(bytes.data() + offset, &value, sizeof value);
  }
  void SetUnits(std::size_t offset, const std::u16string& units) {
    std::memcpy(bytes.data() + offset, units.data(), 2 * units.size());
  }
  bool AreAll(std::size_t from, std::size_t to, BYTE value) const {
    return std::all_of(bytes.begin() + static_cast<std::ptrdiff_t>(from),
                       bytes.begin() + static_cast<std::ptrdiff_t>(to),
                       [&](BYTE byte) { return byte == value; });
  }
};

class LayoutTest : public ExchangeTest {
 protected:
  void SetUp() override { ASSERT_EQ(CSharedMem::CreateFileMappings(1), 1); }

  // Marks every byte, so that those not written can be told.
  static void Mark() {
    const std::vector<BYTE> marks(kHeaderBytes, 0xAA);
    SetRawBytes("KRNIMG_SHAREDMEM_IMAGE", kImageBytes, marks.data(), kImageBytes);
    SetRawBytes("KRNIMG_SHAREDMEM_HEADER", kHeaderBytes, marks.data(), kHeaderBytes);
  }
  static Bytes ImageBytes() { return {RawBytes("KRNIMG_SHAREDMEM_IMAGE", kImageBytes)}; }
  static Bytes HeaderBytes() { return {RawBytes("KRNIMG_SHAREDMEM_HEADER", kHeaderBytes)}; }
  static Bytes PixelBytes(std::size_t samples) {
    return {
        RawBytes("KRNIMG_SHAREDMEM_VMIMAGE", kPixelBytes, static_cast<std::int64_t>(4 * samples))};
  }
  static void SetImageBytes(const Bytes& b) {
    SetRawBytes("KRNIMG_SHAREDMEM_IMAGE", kImageBytes, b.bytes.data(), b.bytes.size());
  }
  static void SetHeaderBytes(const Bytes& b) {
    SetRawBytes("KRNIMG_SHAREDMEM_HEADER", kHeaderBytes, b.bytes.data(), b.bytes.size());
  }
  static void SetFloats(const std::vector<float>& floats) {
    SetRawBytes("KRNIMG_SHAREDMEM_VMIMAGE", kPixelBytes, floats.data(), 4 * floats.size());
  }
};

TEST_F(LayoutTest, ImageFieldsAreWrittenAtTheirOffsets) {
  Mark();
  CImage image = MakeSample({16, true}, 1, {5, 4, 2});
  image.SetSaveableFormat(true);
  image.SetOrgHoneyCombImage(true);
  image.SetBayerImage(true);
  ASSERT_EQ(Write(image, false), 1);
  const Bytes b = ImageBytes();
  const std::pair<std::size_t, int> integers[] = {
      {0, 16},    {4, 1},     {8, 5},    {12, 4},    {16, 2},   {88, 1},   {92, 1},
      {96, 1},    {1124, -7}, {1128, 4}, {1132, 1},  {1136, 1}, {1140, 1}, {1144, 6000},
      {1148, -1}, {1152, 1},  {1156, 1}, {1160, 14}, {1164, 0}};
  for (const auto& [offset, value] : integers) EXPECT_EQ(b.Int(offset), value) << offset;
  const std::pair<std::size_t, double> doubles[] = {{24, 0.25}, {32, -1e10},  {40, -0.5},
                                                    {48, 0.5},  {64, 1000.0}, {72, 1001.0}};
  for (const auto& [offset, value] : doubles) EXPECT_EQ(b.Double(offset), value) << offset;
  EXPECT_EQ(b.Units(100, 16), std::u16string(u"M 31 \u00e4\u3042 \U0001F52D.fits\0", 16));
  EXPECT_EQ(b.Units(612, 5), std::u16string(u"FITS\0", 5));
  // Padding, the levels of a third plane and what follows a text stay.
  for (const auto& [from, to] :
       {std::pair{20, 24}, {56, 64}, {80, 88}, {100 + 2 * 16, 612}, {612 + 2 * 5, 1124}}) {
    EXPECT_TRUE(b.AreAll(static_cast<std::size_t>(from), static_cast<std::size_t>(to), 0xAA))
        << from;
  }
}

TEST_F(LayoutTest, HeaderFieldsAreWrittenAtTheirOffsets) {
  Mark();
  CImage image = MakeSample({8, false}, 1, {5, 4, 1});
  image.Header().SetCFAPattern(3);
  ASSERT_EQ(Write(image, false), 1);
  const Bytes b = HeaderBytes();
  EXPECT_EQ(b.Units(0, 31), std::u16string(u"SIMPLE  =                    T\0", 31));
  EXPECT_EQ(b.Units(162, 2), std::u16string(u" \0", 2));  // the empty card
  EXPECT_EQ(b.Units(324, 14), u"COMMENT with \u00e9");
  // Behind the last card only the first unit of a slot is cleared.
  for (std::size_t slot = 3; slot < 256; ++slot) {
    ASSERT_EQ(b.At<std::uint16_t>(162 * slot), 0) << slot;
    ASSERT_TRUE(b.AreAll(162 * slot + 2, 162 * (slot + 1), 0xAA)) << slot;
  }
  const std::pair<std::size_t, double> doubles[] = {
      {41472, 1.0}, {41480, 250.0}, {41488, 28.0},  {41496, 10.0},   {42024, -1.0},
      {42032, 1.0}, {43072, 0.125}, {43096, 3.125}, {43104, -0.125}, {43160, -7.125}};
  for (const auto& [offset, value] : doubles) EXPECT_EQ(b.Double(offset), value) << offset;
  EXPECT_EQ(b.At<std::uint16_t>(41504), 65535);
  EXPECT_EQ(b.Units(41506, 6), std::u16string(u"stars\0", 6));
  EXPECT_EQ(b.Units(42040, 6), std::u16string(u"maker\0", 6));
  EXPECT_EQ(b.Units(42552, 6), std::u16string(u"model\0", 6));
  EXPECT_EQ(b.Int(43064), -3);
  EXPECT_TRUE(b.AreAll(42018, 42024, 0xAA));
  EXPECT_TRUE(b.AreAll(43068, 43072, 0xAA));
}

TEST_F(LayoutTest, BytesOfAnotherWriterAreRead) {
  Bytes b{std::vector<BYTE>(kImageBytes, 0)};
  b.Set<std::int32_t>(0, -64);
  b.Set<std::int32_t>(4, 256);  // any nonzero flag is set
  b.Set<std::int32_t>(8, 7);
  b.Set<std::int32_t>(12, 6);
  b.Set<std::int32_t>(16, 3);
  b.Set(24, 2.0);
  b.Set(32, std::numeric_limits<double>::quiet_NaN());
  b.Set(40 + 16, 5.0);  // plane 2: equal ends
  b.Set(64 + 16, 5.0);
  b.SetUnits(100, std::u16string(256, u'x'));  // without an end mark
  b.SetUnits(612, u"\xD83D lone");
  b.Set<std::int32_t>(1144, -5);
  b.Set<std::int32_t>(1164, -1);
  SetImageBytes(b);
  Bytes h{std::vector<BYTE>(kHeaderBytes, 0)};
  h.SetUnits(0, std::u16string(81, u'k'));  // without an end mark
  h.SetUnits(162, u"OBJECT");
  h.SetUnits(2 * 162 + 2, u"behind an empty slot");
  h.Set(41472, 30.0);
  h.Set(41480, 10.0);
  h.SetUnits(41506, std::u16string(256, u'l'));
  h.Set<std::int32_t>(43064, 2);
  h.Set(43160, 8.5);
  SetHeaderBytes(h);

  CImage image(m_manager, CImage::DataTypeInt8, 2, 2, 1, 1.0, 0.0, false, CImage::ProgressPtr());
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
  CImage image(m_manager, CImage::DataTypeInt8, 2, 2, 1, 1.0, 0.0, false, CImage::ProgressPtr());
  // The pair that would cross the limit of 255 units is left out whole.
  image.SetOrgFileName(std::wstring(254, L'n') + platform::FromUtf8("\xF0\x9F\x94\xAD"));
  image.Header().SetCameraModel(std::wstring(400, L'm').c_str());
  for (int i = 0; i < 300; ++i) image.Header().Add(std::to_wstring(i).c_str());
  ASSERT_EQ(Write(image, false), 1);
  EXPECT_EQ(ImageBytes().Units(100, 255), std::u16string(254, u'n') + u'\0');
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
    const Bytes floats = PixelBytes(12);
    for (std::size_t i = 0; i < 12; ++i) {
      EXPECT_EQ(floats.At<float>(4 * i), static_cast<float>(static_cast<std::uint16_t>(pixels[i])));
    }
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
  const std::vector<std::uint16_t> expected = {300,   65535, 0, 255, 65279, 4464,
                                               65408, 0,     0, 0,   0,     0};
  const auto check = [&]<typename T>(std::type_identity<T>) {
    const Shape shape{4, 3, 1};
    ASSERT_EQ(Write(MakeImage(m_manager, shape, std::vector<T>(12, 9))), 1);
    SetFloats(floats);
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
