#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

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

  CullImage a;
  CullImage b;
  a.CreateHistogramCull(500, 1);
  b.CreateHistogramCull(500, 1);
  EXPECT_EQ(a.GetHistogramCullXRef(), b.GetHistogramCullXRef());
  EXPECT_EQ(a.GetHistogramCullYRef(), std::vector<std::int32_t>{0});
  auto sorted = a.GetHistogramCullXRef();
  EXPECT_FALSE(std::is_sorted(sorted.begin(), sorted.end()));
  std::sort(sorted.begin(), sorted.end());
  std::vector<std::int32_t> identity(500);
  std::iota(identity.begin(), identity.end(), 0);
  EXPECT_EQ(sorted, identity);
  b.CreateHistogramCull(0, -3);
  EXPECT_FALSE(b.IsHistogramCullParam());
}

}  // namespace
}  // namespace korin::test
