#include <gtest/gtest.h>

#include "image/image_fixture.h"
#include "kernels/element.h"
#include "korinimage/exceptions.h"
#include "support/recording_progress.h"
#include "support/store_bytes.h"

namespace korin::test {
namespace {

using Level = CImage::ChangeBitsLevel;
using ChangeBits = ImageTest;

const Layout kLayouts[] = {
    {"blocks of rows", 4096, 1000, Policy::Blocks, Policy::Blocks, 2},
    {"one block", 4096, 1000, Policy::Image, Policy::Image, 2},
    {"a plane a block, tight", 1024, 60, Policy::Planes, Policy::Planes, 3},
    {"rows, tight", 1024, 4, Policy::Blocks, Policy::Blocks, 1},
    {"made in blocks, converted by planes", 2048, 60, Policy::Blocks, Policy::Planes, 5},
    {"made in one block, converted by rows", 1024, 400, Policy::Image, Policy::Blocks, 2},
};

// What a conversion leaves: pixels and attributes.
struct Result {
  std::vector<BYTE> bytes;
  std::vector<std::uint64_t> attributes;
  std::vector<std::int32_t> sample;
  bool operator==(const Result&) const = default;
};

Result ResultOf(CImage& image) {
  Result result;
  result.bytes = StoreBytes(*image.Store());
  for (const double value : {image.GetBscale(), image.GetBzero()}) {
    result.attributes.push_back(Bits(value));
  }
  for (const auto* levels : {&image.GetLevelMin(), &image.GetLevelMax(), &image.GetLevelRange()}) {
    for (const double level : *levels) result.attributes.push_back(Bits(level));
  }
  result.attributes.push_back(static_cast<std::uint64_t>(image.GetBitsPixel()));
  result.attributes.push_back(image.IsSigned());
  result.sample = image.GetHistogramCullXRef();
  return result;
}

TEST_F(ChangeBits, EveryPairAndLevelIsTheSameUnderEveryLayout) {
  const Shape shape{71, 29, 3};
  for (int kind = 0; kind < 7; ++kind) {
    DispatchElement(static_cast<ElementKind>(kind), [&]<typename S>(std::type_identity<S>) {
      const auto pixels = RandomPixels<S>(shape);
      for (const auto& [type, isSigned] : {std::pair(CImage::DataTypeInt8, false),
                                           {CImage::DataTypeInt16, true},
                                           {CImage::DataTypeInt16, false},
                                           {CImage::DataTypeInt32, true},
                                           {CImage::DataTypeInt32, false},
                                           {CImage::DataTypeFloat, false},
                                           {CImage::DataTypeDouble, true}}) {
        for (const Level level : {Level::Raw, Level::Cooked, Level::MinMax}) {
          std::optional<Result> expected;
          for (const Layout& layout : kLayouts) {
            SetThreadCount(layout.threads);
            const auto manager = MakeManager(layout.blockSize, layout.capacity, 20000);
            manager->SetAllocationPolicy(layout.madeUnder);
            CImage image = MakeImage(manager, shape, pixels, 0.5, -20.0);
            image.AllocLevel();
            for (int plane = 0; plane < 3; ++plane) image.SetLevel(plane, -10.0 * plane, 100.0);
            manager->SetAllocationPolicy(layout.measuredUnder);
            ASSERT_TRUE(image.ChangeBits(type, isSigned, level, kSilent));
            const Result result = ResultOf(image);
            if (!expected) expected = result;
            EXPECT_EQ(result, *expected) << layout.name << " from " << kind << " to " << type;
          }
        }
      }
    });
  }
}

TEST_F(ChangeBits, ModesMapValuesAndScalingAsStated) {
  const auto manager = MakeManager(4096, 100);
  for (const Policy policy : {Policy::Blocks, Policy::Image}) {
    manager->SetAllocationPolicy(policy);
    const auto convert = [&]<typename S, typename D>(const std::vector<S>& pixels, D, Level level,
                                                     double s = 1.0, double z = 0.0) {
      CImage image = MakeImage<S>(manager, {static_cast<int>(pixels.size()), 1, 1}, pixels, s, z);
      image.SetDefaultLevel();
      EXPECT_TRUE(image.ChangeBits(TypeOf<D>(), std::is_signed_v<D>, level, kSilent));
      return std::tuple(ReadPixels<D>(image), image.GetBscale(), image.GetBzero());
    };
    using U8 = std::vector<std::uint8_t>;
    using S16 = std::vector<std::int16_t>;
    // Min-max: truncated, only the maximum reaches the highest code.
    EXPECT_EQ(convert(std::vector<std::uint16_t>{100, 1100, 1099}, std::uint8_t{}, Level::MinMax),
              std::tuple(U8{0, 255, 254}, 1000.0 / 255.0, 100.0));
    EXPECT_EQ(convert(std::vector<std::int32_t>{-5, 5}, std::int16_t{}, Level::MinMax),
              std::tuple(S16{-32768, 32767}, 10.0 / 65535.0, -5.0 + 10.0 / 65535.0 * 32768.0));
    // A flat image: the highest code, BSCALE 0.
    EXPECT_EQ(convert(std::vector<float>{7, 7}, std::uint8_t{}, Level::MinMax),
              std::tuple(U8{255, 255}, 0.0, 7.0));
    // Raw: values that fit stay; values that would fit are moved; others are cut
    // around the average.
    EXPECT_EQ(convert(U8{0, 7, 255}, std::int16_t{}, Level::Raw),
              std::tuple(S16{0, 7, 255}, 1.0, 0.0));
    EXPECT_EQ(convert(S16{-100, 100}, std::uint8_t{}, Level::Raw),
              std::tuple(U8{0, 200}, 1.0, -100.0));
    EXPECT_EQ(convert(S16{-1000, 0, 1000, 400}, std::uint8_t{}, Level::Raw),
              std::tuple(U8{0, 0, 255, 255}, 1.0, 100.0));
    EXPECT_EQ(convert(std::vector<double>{1.9, -1.9, NAN}, std::int16_t{}, Level::Raw),
              std::tuple(S16{1, -1, 32767}, 1.0, 0.0));
    // Physical values are what is kept: scaling attributes stay as they were.
    EXPECT_EQ(convert(S16{1, 2}, std::int32_t{}, Level::Raw, 10.0, 5.0),
              std::tuple(std::vector<std::int32_t>{15, 25}, 10.0, 5.0));
    // Floating destinations take the stored values as they are.
    EXPECT_EQ(convert(std::vector<std::uint32_t>{4294967295u}, float{}, Level::Cooked, 3.0, 1.0),
              std::tuple(std::vector<float>{4294967296.0f}, 3.0, 1.0));
  }
}

TEST_F(ChangeBits, PlanesAreCookedOneByOneAndCutTogether) {
  const auto manager = MakeManager(4096, 100);
  for (const Policy policy : {Policy::Blocks, Policy::Planes, Policy::Image}) {
    manager->SetAllocationPolicy(policy);
    CImage image = MakeImage<std::uint16_t>(manager, {2, 1, 3}, {0, 100, 0, 100, 0, 2});
    image.LevelMinRef() = {0.0, 50.0};
    image.LevelMaxRef() = {100.0, 200.0};
    ASSERT_TRUE(image.ChangeBits(CImage::DataTypeInt8, true, Level::Cooked, kSilent));
    // A plane without levels shows 0 to 1.
    EXPECT_EQ(ReadPixels<std::uint8_t>(image), (std::vector<std::uint8_t>{0, 255, 0, 85, 0, 255}));
    EXPECT_EQ(image.GetBscale(), 100.0 / 255.0);
    EXPECT_EQ(image.GetLevelMin(), std::vector<double>(3, 0.0));
    EXPECT_EQ(image.GetLevelMax(), std::vector<double>(3, 255.0));
    EXPECT_EQ(image.GetLevelRange(), std::vector<double>(3, 255.0));
    EXPECT_TRUE(image.IsSigned());

    // Raw cuts around the average of the first plane, whatever the others hold.
    CImage wide = MakeImage<std::int16_t>(manager, {2, 1, 2}, {0, 100, 1000, -1000});
    ASSERT_TRUE(wide.ChangeBits(CImage::DataTypeInt8, true, Level::Raw, kSilent));
    EXPECT_EQ(ReadPixels<std::uint8_t>(wide), (std::vector<std::uint8_t>{0, 50, 255, 0}));
    EXPECT_EQ(wide.GetBzero(), 50.0);
  }
}

TEST_F(ChangeBits, TheRandomSequenceGoesOnAsAfterCopies) {
  const auto manager = MakeManager(4096, 100);
  const CImage image = MakeImage<std::uint16_t>(manager, {9, 9, 1}, std::vector<std::uint16_t>(81));
  CImage start;
  start = image;
  for (const bool toInteger : {true, false}) {
    const auto type = toInteger ? CImage::DataTypeInt8 : CImage::DataTypeFloat;
    // In place an integer conversion works from a copy, then assigns the result.
    CImage source;
    if (toInteger) source = start;
    const auto clone = (toInteger ? source : start).CloneWithoutImage(type, kSilent);
    CImage expected;
    expected = *clone;
    CImage converted(std::move(start));
    start = image;
    ASSERT_TRUE(converted.ChangeBits(type, true, Level::MinMax, kSilent));
    EXPECT_EQ(converted.GetHistogramCullXRef(), expected.GetHistogramCullXRef());
    EXPECT_EQ(converted.GetHistogramCullYRef(), expected.GetHistogramCullYRef());
  }
}

TEST_F(ChangeBits, ReportsAllocationThenBlocksOrRows) {
  const auto manager = MakeManager(4096, 100);
  const std::pair<Policy, std::vector<std::string>> expected[] = {
      {Policy::Planes,
       {"update 50", "update 100", "initialize", "update 50", "update 100", "finalize"}},
      {Policy::Blocks,
       {"update 100", "initialize", "update 25", "update 50", "update 75", "update 100",
        "finalize"}}};
  for (const auto& [policy, calls] : expected) {
    manager->SetAllocationPolicy(policy);
    for (const auto& [type, level] : {std::pair(CImage::DataTypeInt8, Level::Raw),
                                      {CImage::DataTypeInt8, Level::Cooked},
                                      {CImage::DataTypeInt32, Level::MinMax},
                                      {CImage::DataTypeDouble, Level::Automatic}}) {
      CImage image = MakeImage<float>(manager, {3, 2, 2}, std::vector<float>(12, 1.0f));
      const auto sink = std::make_shared<RecordingProgress>();
      EXPECT_TRUE(image.ChangeBits(type, true, level, sink));
      EXPECT_EQ(sink->calls, calls) << type;
    }
  }
}

TEST_F(ChangeBits, AutomaticAsksTheLevels) {
  const auto manager = MakeManager(4096, 100);
  CImage image = MakeImage<std::uint16_t>(manager, {2, 1, 1}, {0, 300});
  EXPECT_TRUE(image.IsBitsChangeableRaw(CImage::DataTypeInt8, {}, {}, false));
  image.SetLevel(0, 0.0, 256.0);
  EXPECT_TRUE(image.IsBitsChangeable(CImage::DataTypeInt8, false));  // inclusive
  CImage raw(image);
  ASSERT_TRUE(raw.ChangeBits(CImage::DataTypeInt8, false, Level::Automatic, kSilent));
  EXPECT_EQ(ReadPixels<std::uint8_t>(raw), (std::vector<std::uint8_t>{0, 150}));
  image.SetLevel(0, 0.0, 257.0);
  EXPECT_FALSE(image.IsBitsChangeable(CImage::DataTypeInt8, false));
  EXPECT_TRUE(image.IsBitsChangeable(CImage::DataTypeFloat, false));
  EXPECT_FALSE(image.IsBitsChangeableRaw(CImage::DataTypeInt32, {NAN}, {1.0}, false));
  ASSERT_TRUE(image.ChangeBits(CImage::DataTypeInt8, false, static_cast<Level>(9), kSilent));
  EXPECT_EQ(ReadPixels<std::uint8_t>(image), (std::vector<std::uint8_t>{0, 255}));
}

TEST_F(ChangeBits, ShortCutsAndRefusals) {
  const auto manager = MakeManager(4096, 100);
  CImage image = MakeImage<std::uint8_t>(manager, {2, 2, 1}, {1, 2, 3, 4});
  const CImage other = MakeImage<float>(manager, {1, 1, 1}, {9});
  image.SetSigned(true);
  const BYTE* address = image.Store()->GetImageAdr(0, 0, 0, false, false, nullptr);
  EXPECT_TRUE(image.ChangeBits(&other, CImage::DataTypeInt8, false, Level::MinMax, kSilent));
  EXPECT_FALSE(image.IsSigned());
  EXPECT_EQ(image.Store()->GetImageAdr(0, 0, 0, false, false, nullptr), address);
  for (const int type : {24, 0, -8, 64, -65}) {
    EXPECT_FALSE(image.ChangeBits(static_cast<CImage::DataType>(type), true, Level::Raw, kSilent));
  }
  EXPECT_FALSE(CImage().ChangeBits(CImage::DataTypeInt8, false, Level::Raw, kSilent));
  CImage orphan = MakeImage<std::uint8_t>(MakeManager(4096, 9), {1, 1, 1}, {1});
  for (const auto type : {CImage::DataTypeFloat, CImage::DataTypeInt16}) {
    EXPECT_FALSE(orphan.ChangeBits(type, true, Level::Raw, kSilent));
  }
  // A cast from a type to itself does not exist; the flag is set all the same.
  EXPECT_FALSE(image.ChangeBits(&other, CImage::DataTypeFloat, true, Level::Raw, kSilent));
  EXPECT_TRUE(image.IsSigned());
  EXPECT_EQ(ReadPixels<std::uint8_t>(image), (std::vector<std::uint8_t>{1, 2, 3, 4}));

  // Another image as source: the result is its conversion, in its own store.
  CImage made;
  ASSERT_TRUE(made.ChangeBits(&image, CImage::DataTypeInt16, false, Level::Raw, kSilent));
  EXPECT_EQ(ReadPixels<std::uint16_t>(made), (std::vector<std::uint16_t>{1, 2, 3, 4}));
  EXPECT_EQ(made.GetWidth(), 2);
  // The image itself as source is no source.
  ASSERT_TRUE(made.ChangeBits(&made, CImage::DataTypeInt32, true, Level::Raw, kSilent));
  EXPECT_EQ(ReadPixels<std::int32_t>(made), (std::vector<std::int32_t>{1, 2, 3, 4}));
  EXPECT_TRUE(made.IsSigned());
}

TEST_F(ChangeBits, RefusedMemoryKeepsTheImageAndTheHeaderObjectStays) {
  const Shape shape{64, 64, 1};  // 2 blocks of 4096 as 16 bits
  const auto manager = MakeManager(4096, 3, 4);
  const auto pixels = RandomPixels<std::uint16_t>(shape);
  CImage image = MakeImage(manager, shape, pixels);
  image.Header().Add(L"OBJECT  = 'M13'");
  CHeader* header = &image.Header();
  EXPECT_FALSE(image.ChangeBits(CImage::DataTypeDouble, true, Level::Raw, kSilent));
  EXPECT_EQ(ReadPixels<std::uint16_t>(image), pixels);
  EXPECT_EQ(manager->GetAllocatedBlocks(), 2);

  const auto sink = std::make_shared<RecordingProgress>();
  ASSERT_TRUE(image.ChangeBits(CImage::DataTypeInt8, true, Level::MinMax, sink));
  EXPECT_EQ(&image.Header(), header);
  EXPECT_EQ(header->GetCount(), 1);
  EXPECT_EQ(manager->GetAllocatedBlocks(), 1);
  EXPECT_EQ(sink->Count("finalize"), sink->Count("initialize"));
  EXPECT_EQ(sink->updates.back(), 100);
  EXPECT_FALSE(sink->foreignThread);

  // Under a block policy a destination block that cannot come in leaves the new
  // type over zeros: the one outcome in which pixels are given up.
  const auto small = MakeManager(8192, 1, 100);
  small->SetAllocationPolicy(Policy::Image);
  CImage lost = MakeImage(small, shape, pixels);
  ASSERT_TRUE(lost.ChangeBits(CImage::DataTypeInt8, false, Level::MinMax, kSilent));
  EXPECT_EQ(lost.GetMinMaxRaw(0), std::tuple(0.0, 0.0));
}

}  // namespace
}  // namespace korin::test
