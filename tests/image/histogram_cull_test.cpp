#include <gtest/gtest.h>

#include "image/image_fixture.h"

namespace korin::test {
namespace {

class CullImage : public CImage {
 public:
  using CImage::CreateHistogramCull;
  using CImage::GetHistogramCullRAND;
};

using CullCounts = std::pair<std::int32_t, std::int32_t>;

std::optional<CullCounts> CountsFor(int width, int height) {
  CImage image;
  image.GetHistogramCullXRef() = {0};
  image.SetWidth(width);
  image.SetHeight(height);
  return image.GetHistogramCull();
}

using HistogramCull = ImageTest;

TEST_F(HistogramCull, SamplingRule) {
  EXPECT_EQ(CountsFor(4000, 3000), CullCounts(1024, 768));
  EXPECT_EQ(CountsFor(800, 600), CullCounts(800, 600));
  EXPECT_EQ(CountsFor(8000, 6000), CullCounts(2000, 1500));
  // At least one column and one row, however narrow the image.
  EXPECT_EQ(CountsFor(1, 1000000), CullCounts(1, 786432));
  EXPECT_EQ(CountsFor(1000000, 1), CullCounts(886810, 1));
  EXPECT_EQ(CountsFor(0, 5), std::nullopt);
  EXPECT_EQ(CullImage().GetHistogramCull(), std::nullopt);
  int x = 0;
  EXPECT_FALSE(CImage().GetHistogramCull(&x, nullptr));
}

TEST(HistogramCullSettings, AreReadUnclampedAndSetClamped) {
  ScopedMemoryConfig config;
  config->WriteString("ChannelPalette", "HistogramCullRatio", L"0.5");
  CullImage image;
  image.SetWidth(8000);
  image.SetHeight(6000);
  image.CreateHistogramCull(3, 3);
  EXPECT_EQ(image.GetHistogramCull(), std::nullopt);
  image.SetHistogramCullParam(0.5, 1000);
  EXPECT_EQ(image.GetHistogramCull(), CullCounts(8000, 6000));

  config->WriteString("ChannelPalette", "HistogramCullRatio", L"100");
  const std::pair<const wchar_t*, std::optional<CullCounts>> minimums[] = {
      {L"100", CullCounts(80, 60)}, {L"0", std::nullopt}, {L"-1", CullCounts(8000, 6000)}};
  for (const auto& [minimum, counts] : minimums) {
    config->WriteString("ChannelPalette", "HistogramCullMin", minimum);
    image.InitHistogramCull();
    EXPECT_EQ(image.GetHistogramCull(), counts) << minimum;
  }
}

TEST_F(HistogramCull, PermutationsFollowTheSeededSequence) {
  CullImage image;
  EXPECT_EQ(image.GetHistogramCullRAND(1), 0);
  // The second draw of seed 5489 is 581869302: 0.1354... of 0 to 999.
  EXPECT_EQ(image.GetHistogramCullRAND(1000), 135);
  // No index fits none: eleven draws, then half of the count.
  CullImage skipping;
  EXPECT_EQ(skipping.GetHistogramCullRAND(0), 0);
  std::mt19937 random;
  random.discard(11);
  const auto expected = static_cast<std::int32_t>(static_cast<float>(random()) / 4294967296.0f *
                                                  static_cast<float>(99));
  EXPECT_EQ(skipping.GetHistogramCullRAND(100), expected);

  // Transpositions, columns before rows; worked out by another program. A second
  // table goes on in the sequence.
  using Indexes = std::vector<std::int32_t>;
  CullImage shuffled;
  shuffled.CreateHistogramCull(12, 9);
  EXPECT_EQ(shuffled.GetHistogramCullXRef(), (Indexes{0, 7, 6, 8, 4, 5, 2, 3, 1, 9, 10, 11}));
  EXPECT_EQ(shuffled.GetHistogramCullYRef(), (Indexes{6, 7, 3, 1, 2, 5, 0, 4, 8}));
  shuffled.CreateHistogramCull(12, 9);
  EXPECT_EQ(shuffled.GetHistogramCullXRef(), (Indexes{4, 0, 9, 2, 10, 8, 6, 5, 1, 3, 7, 11}));
  EXPECT_EQ(shuffled.GetHistogramCullYRef(), (Indexes{0, 5, 6, 1, 4, 7, 2, 3, 8}));
  shuffled.CreateHistogramCull(1, 1);
  EXPECT_EQ(shuffled.GetHistogramCullXRef(), Indexes{0});
  shuffled.CreateHistogramCull(0, -3);
  EXPECT_FALSE(shuffled.IsHistogramCullParam());
}

}  // namespace
}  // namespace korin::test
