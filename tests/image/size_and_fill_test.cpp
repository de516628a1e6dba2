#include <HalideRuntime.h>
#include <gtest/gtest.h>

#include "image/image_fixture.h"
#include "korinimage/exceptions.h"
#include "support/recording_progress.h"

namespace korin::test {
namespace {

using SizeAndFill = ImageTest;
constexpr Policy kPolicies[] = {Policy::Blocks, Policy::Planes, Policy::Image};

TEST_F(SizeAndFill, SizeAndPlanesRebuildTheStore) {
  const auto manager = MakeManager(4096, 10, 10);
  CImage image = MakeImage<std::uint16_t>(manager, {20, 20, 1}, std::vector<std::uint16_t>(400, 3));
  EXPECT_TRUE(image.ChangeSize(20, 20, kSilent));
  EXPECT_EQ(image.GetAverageRaw(0), 3.0);
  image.SetLevel(0, 1.0, 2.0);
  const auto sample = image.GetHistogramCullXRef();
  const auto sink = std::make_shared<RecordingProgress>();
  EXPECT_TRUE(image.ChangeSize(30, 10, sink));
  EXPECT_EQ(sink->updates.back(), 100);
  EXPECT_EQ(image.GetHistogramCullXRef().size(), 30u);
  EXPECT_EQ(image.GetLevelMin(0), 1.0);
  EXPECT_EQ(image.GetMinMaxRaw(0), std::tuple(0.0, 0.0));
  EXPECT_FALSE(image.ChangeSize(30000, 1000, kSilent));
  EXPECT_EQ(image.GetWidth(), 30);

  EXPECT_TRUE(image.ChangePlanes(1, kSilent));
  EXPECT_EQ(image.GetLevelMin(0), 1.0);  // nothing happened
  const auto before = image.GetHistogramCullXRef();
  EXPECT_TRUE(image.ChangePlanes(3, kSilent));
  EXPECT_EQ(image.GetDimension(), 3);
  EXPECT_EQ(image.GetLevelMax(), std::vector<double>(3, 1.0));
  EXPECT_EQ(image.GetHistogramCullXRef(), before);
  EXPECT_THROW(image.ChangePlanes(2000, kSilent), CVmMemoryAllocationError);
  EXPECT_EQ(image.GetPlanes(), 2000);
  EXPECT_EQ(image.GetLevelMax().size(), 3u);
  EXPECT_THROW((void)image.GetAverageRaw(-1), CVmMemoryAllocationError);
  image.SetPlanes(3);
  EXPECT_EQ(image.GetAverageRaw(-1), 0.0);
  EXPECT_TRUE(image.ChangePlanes(1, kSilent));
  EXPECT_EQ(image.GetDimension(), 2);
  // A two-dimensional image counts as one of one plane, whatever its plane count says.
  image.SetPlanes(0);
  EXPECT_TRUE(image.ChangePlanes(1, kSilent));
  EXPECT_EQ(image.GetPlanes(), 0);
  EXPECT_TRUE(image.ChangePlanes(0, kSilent));
  EXPECT_EQ(image.GetDimension(), 3);
  EXPECT_EQ(image.GetBlockCount(), 0);
}

TEST_F(SizeAndFill, FillWrapsIntegersAndKeepsOtherPlanes) {
  struct Case {
    double value;
    std::uint8_t asByte;
    std::uint32_t asWord;
  };
  const Case cases[] = {{300.0, 44, 300},         {-1.0, 255, 4294967295u}, {5.9, 5, 5},
                        {-5.9, 251, 4294967291u}, {4e9, 0, 4000000000u},    {NAN, 0, 0x80000000u},
                        {1e300, 0, 0x80000000u}};
  for (const Policy policy : kPolicies) {
    const auto manager = MakeManager(2048, 30, 100);
    manager->SetAllocationPolicy(policy);
    const auto fill = [&]<typename T>(T, double value) {
      const Shape shape{33, 40, 3};
      const auto pixels = RandomPixels<T>(shape);
      CImage image = MakeImage(manager, shape, pixels, 2.0, 7.0);
      EXPECT_TRUE(image.Fill(1, value));
      auto filled = ReadPixels<T>(image);
      const T stored = filled[33 * 40];
      auto expected = pixels;
      std::fill(expected.begin() + 33 * 40, expected.begin() + 2 * 33 * 40, stored);
      EXPECT_EQ(std::memcmp(filled.data(), expected.data(), filled.size() * sizeof(T)), 0);
      EXPECT_TRUE(image.Fill(-1, value));
      filled = ReadPixels<T>(image);
      expected.assign(expected.size(), stored);
      EXPECT_EQ(std::memcmp(filled.data(), expected.data(), filled.size() * sizeof(T)), 0);
      return stored;
    };
    for (const Case& c : cases) {
      EXPECT_EQ(fill(std::uint8_t{}, c.value), c.asByte) << c.value;
      EXPECT_EQ(fill(std::uint32_t{}, c.value), c.asWord) << c.value;
    }
    EXPECT_TRUE(std::isinf(fill(float{}, 1e300)));
    EXPECT_EQ(fill(double{}, 0.1), 0.1);
  }
}

TEST_F(SizeAndFill, FilledAndCopiedPixelsSurvivePaging) {
  // Blocks filled or copied while others push them out must come back as written.
  for (const Policy policy : kPolicies) {
    const auto manager = MakeManager(1024, policy == Policy::Blocks ? 3 : 8, 400);
    manager->SetAllocationPolicy(policy);
    const Shape shape{32, 32, 2};
    std::vector<CImage> images;
    for (int i = 0; i < 6; ++i) {
      images.push_back(
          MakeImage<std::uint16_t>(manager, shape, RandomPixels<std::uint16_t>(shape)));
      images.back().Fill(-1, 100.0 + i);
    }
    const CImage copy(images[4]);
    for (int i = 0; i < 6; ++i) {
      const double value = 100.0 + i;
      EXPECT_EQ(images[static_cast<std::size_t>(i)].GetMinMaxRaw(-1), std::tuple(value, value));
    }
    EXPECT_EQ(copy.GetMinMaxRaw(-1), std::tuple(104.0, 104.0));
  }
}

TEST_F(SizeAndFill, ScalingAppliedImageHoldsPhysicalValues) {
  for (const Policy policy : kPolicies) {
    const auto manager = MakeManager(4096, 40, 100);
    manager->SetAllocationPolicy(policy);
    const Shape shape{21, 30, 2};
    const auto pixels = RandomPixels<std::int32_t>(shape);
    CImage image = MakeImage(manager, shape, pixels, 0.1, -7.0);
    const auto sink = std::make_shared<RecordingProgress>();
    const auto scaled = image.ScalingAppliedImage(sink);
    const auto values = ReadPixels<double>(*scaled);
    for (std::size_t i = 0; i < pixels.size(); ++i) {
      ASSERT_EQ(values[i], static_cast<double>(pixels[i]) * 0.1 + -7.0);
    }
    EXPECT_EQ(scaled->GetBscale(), 0.1);  // kept, although applied
    EXPECT_EQ(scaled->GetBzero(), -7.0);
    EXPECT_EQ(sink->calls.front(), "initialize");
    EXPECT_EQ(sink->calls.back(), "finalize");
    EXPECT_EQ(sink->updates.back(), 100);
    image.SetBitsPixel(static_cast<CImage::DataType>(24));
    const auto zeros = image.ScalingAppliedImage();
    EXPECT_EQ(ReadPixels<double>(*zeros), std::vector<double>(pixels.size()));
    EXPECT_EQ(zeros->GetBitsPixel(), CImage::DataTypeDouble);
  }
}

// A block that was to be overwritten was not read, and holds anything.
TEST_F(SizeAndFill, AKernelThatFailsLeavesZeros) {
  const auto manager = MakeManager(4096, 1, 10);
  const Shape shape{40, 20, 1};
  CImage image = MakeImage(manager, shape, RandomPixels<std::uint16_t>(shape));
  CImage other = MakeImage(manager, shape, RandomPixels<std::uint16_t>(shape, 2));
  EXPECT_FALSE(image.IsOnMemory());
  EXPECT_TRUE(other.Fill(0, 1.0));  // the runtime is set up
  const auto failing = [](void*, halide_task_t, int, int, std::uint8_t*) { return -1; };
  const auto working = halide_set_custom_do_par_for(failing);
  EXPECT_FALSE(image.Fill(0, 5.0));
  halide_set_custom_do_par_for(working);
  EXPECT_EQ(ReadPixels<std::uint16_t>(image), std::vector<std::uint16_t>(800));
  EXPECT_TRUE(image.Fill(0, 5.0));
  EXPECT_EQ(ReadPixels<std::uint16_t>(image), std::vector<std::uint16_t>(800, 5));
}

TEST_F(SizeAndFill, Levels) {
  const auto manager = MakeManager(4096, 40);
  CImage image = MakeImage<float>(manager, {2, 1, 2}, {7, 7, -3, 5}, -1.0, 0.0);
  EXPECT_EQ(image.GetLevelMax(), std::vector<double>(2, 0.0));  // none until they are made
  for (const Policy policy : {Policy::Planes, Policy::Image}) {
    manager->SetAllocationPolicy(policy);
    EXPECT_TRUE(image.SetDefaultLevel());
    EXPECT_EQ(image.GetLevelMin(), (std::vector<double>{-7.0, -5.0}));
    EXPECT_EQ(image.GetLevelMax(), (std::vector<double>{-6.0, 3.0}));
    EXPECT_EQ(image.GetLevelRange(), (std::vector<double>{1.0, 8.0}));
  }
  EXPECT_TRUE(image.SetLevel(0, 5, 5));
  EXPECT_EQ(image.GetLevelMax(0), 6.0);
  EXPECT_TRUE(image.SetLevel(0, 1, 8));
  EXPECT_TRUE(image.SetLevelMin(0, 10));
  EXPECT_EQ(image.GetLevelMax(0), 11.0);
  EXPECT_TRUE(image.SetLevelMax(0, 3));
  EXPECT_EQ(image.GetLevelMax(0), 11.0);
  EXPECT_EQ(image.GetLevelRange(0), 1.0);
  image.SetPlanes(3);  // levels once made do not grow
  for (const int plane : {-1, 2, 1000}) {
    EXPECT_FALSE(image.SetLevel(plane, 0, 1));
    EXPECT_EQ(image.GetLevelMin(plane), 0.0);
  }
  CImage bare;
  bare.SetPlanes(2);
  EXPECT_TRUE(bare.SetLevelMax(1, 9.0));
  EXPECT_EQ(bare.GetLevelMax(), (std::vector<double>{1.0, 9.0}));
}

}  // namespace
}  // namespace korin::test
