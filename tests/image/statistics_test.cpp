#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "image/image_fixture.h"
#include "korinimage/exceptions.h"

namespace korin::test {
namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
const double kNaN = std::numeric_limits<double>::quiet_NaN();

// Every figure of an image, so that layouts can be compared bit by bit.
std::vector<std::uint64_t> Figures(const CImage& image) {
  std::vector<std::uint64_t> bits;
  const auto add = [&bits](double value) { bits.push_back(Bits(value)); };
  for (int plane = -1; plane < image.GetPlanes(); ++plane) {
    const auto [min, max, average] = image.GetMinMaxAvrRaw(plane);
    const auto [low, high, mode] = image.GetMinMaxMode(plane, 16, 4);
    const auto [pmin, pmax] = image.GetMinMax(plane);
    for (const double value :
         {min, max, average, low, high, mode, pmin, pmax, image.GetAverage(plane),
          image.GetStdDev(plane), image.GetStdDevRaw(plane, 3.5)}) {
      add(value);
    }
    for (const auto& histogram : {image.HistogramRaw(plane, 50), image.Histogram(plane, 7),
                                  image.Histogram(plane, -100.0, 900.0, 33)}) {
      for (const std::int32_t count : histogram) bits.push_back(static_cast<unsigned>(count));
    }
  }
  return bits;
}

const Layout kKernelLayouts[] = {
    {"one block, in memory", 4096, 1000, Policy::Image, Policy::Image, 2},
    {"planes, tight", 1024, 40, Policy::Planes, Policy::Planes, 1},
    {"planes, five threads", 65536, 100, Policy::Planes, Policy::Image, 5},
    {"small blocks", 4096, 1000, Policy::Blocks, Policy::Planes, 2},
    {"small blocks, tight", 700, 3, Policy::Blocks, Policy::Image, 3},
};
const Layout kRowLayouts[] = {
    {"in memory", 262144, 100, Policy::Blocks, Policy::Blocks, 2},
    {"tight", 4096, 2, Policy::Blocks, Policy::Blocks, 1},
    {"a line a block", 320, 4, Policy::Blocks, Policy::Blocks, 4},
    {"made in one block", 4096, 1000, Policy::Image, Policy::Blocks, 3},
};

template <typename T>
class Statistics : public ImageTest {
 protected:
  static CImage Make(const Layout& layout, const std::vector<T>& pixels, double s, double z) {
    SetThreadCount(layout.threads);
    // Tight budgets are counted in blocks of the layout's own size.
    const auto manager = MakeManager(layout.blockSize, layout.capacity, 20000);
    manager->SetAllocationPolicy(layout.madeUnder);
    CImage image = MakeImage(manager, kShape, pixels, s, z);
    manager->SetAllocationPolicy(layout.measuredUnder);
    s_managers.push_back(manager);
    return image;
  }
  void TearDown() override { s_managers.clear(); }

  static constexpr Shape kShape{37, 45, 3};
  static inline std::vector<std::shared_ptr<CVmManager>> s_managers;
};
using Elements = testing::Types<std::uint8_t, std::int16_t, std::uint16_t, std::int32_t,
                                std::uint32_t, float, double>;
TYPED_TEST_SUITE(Statistics, Elements);

TYPED_TEST(Statistics, DoNotDependOnTheLayout) {
  auto pixels = RandomPixels<TypeParam>(this->kShape);
  if constexpr (std::is_floating_point_v<TypeParam>) pixels[5] = static_cast<TypeParam>(kInf);
  for (const double bscale : {1.0, -0.75}) {
    std::vector<std::uint64_t> kernels;
    for (const Layout& layout : kKernelLayouts) {
      const auto figures = Figures(this->Make(layout, pixels, bscale, 10.0));
      if (kernels.empty()) kernels = figures;
      EXPECT_EQ(figures, kernels) << layout.name;
    }
    std::vector<std::uint64_t> rows;
    for (const Layout& layout : kRowLayouts) {
      const auto figures = Figures(this->Make(layout, pixels, bscale, 10.0));
      if (rows.empty()) rows = figures;
      EXPECT_EQ(figures, rows) << layout.name;
    }
  }
}

using StatisticsRules = ImageTest;

CImage Two(double bscale, double bzero, Policy policy) {
  static std::vector<std::shared_ptr<CVmManager>> managers;
  managers.push_back(MakeManager(4096, 100));
  managers.back()->SetAllocationPolicy(policy);
  return MakeImage<std::uint16_t>(managers.back(), {2, 1, 1}, {1, 3}, bscale, bzero);
}

TEST_F(StatisticsRules, RowPathScalesTwiceAndKernelPathOnce) {
  const CImage rows = Two(2.0, 10.0, Policy::Blocks);
  EXPECT_EQ(rows.GetMinMaxRaw(0), std::tuple(12.0, 16.0));
  EXPECT_EQ(rows.GetMinMax(0), std::tuple(34.0, 42.0));
  EXPECT_EQ(rows.GetAverageRaw(0), 14.0);
  EXPECT_EQ(rows.GetAverage(0), 38.0);
  // The mean square of physical values minus the square of the given mean.
  EXPECT_EQ(rows.GetStdDevRaw(0, 14.0), 2.0);
  const CImage kernels = Two(-1.0, 0.0, Policy::Planes);
  EXPECT_EQ(kernels.GetMinMaxRaw(0), std::tuple(1.0, 3.0));
  EXPECT_EQ(kernels.GetMinMax(0), std::tuple(-3.0, -1.0));
  EXPECT_EQ(std::get<2>(kernels.GetMinMaxMode(0, 2, 2)), 1.25);
  // A negative BSCALE counts in mirrored bins; a pixel at fMin has none.
  EXPECT_EQ(kernels.HistogramRaw(0, 0.0, 4.0, 4), (std::vector<std::int32_t>{0, 1, 0, 1}));
  // Physical bounds are turned into stored ones, in order.
  EXPECT_EQ(kernels.Histogram(0, -4.0, 0.0, 4), (std::vector<std::int32_t>{0, 1, 0, 1}));
  EXPECT_EQ(Two(2.0, 10.0, Policy::Image).Histogram(0, 10.0, 18.0, 4),
            (std::vector<std::int32_t>{0, 1, 0, 1}));
  const CImage falling = Two(-2.0, 10.0, Policy::Planes);
  EXPECT_EQ(falling.GetStdDev(0), 2.0);
  EXPECT_EQ(falling.GetStdDev(0, falling.GetAverage(0)), 2.0);
  double min = 0.0;
  double max = 0.0;
  double third = 0.0;
  falling.GetMinMaxAvr(0, &min, &max, &third);
  EXPECT_EQ(std::tuple(min, max, third), std::tuple(4.0, 8.0, 6.0));
  falling.GetMinMax(0, &max, &min);
  EXPECT_EQ(std::tuple(max, min), std::tuple(4.0, 8.0));
  falling.GetMinMaxMode(0, &min, &max, &third, 2, 2);  // stored values
  EXPECT_EQ(std::tuple(min, max, third), std::tuple(1.0, 3.0, 1.25));
}

TEST_F(StatisticsRules, RowHistogramBinsAndRange) {
  const CImage image = Two(1.0, 0.0, Policy::Blocks);
  using Counts = std::vector<std::int32_t>;
  EXPECT_EQ(image.HistogramRaw(0, 3), (Counts{1, 0, 1}));  // the maximum has the last bin
  EXPECT_EQ(image.HistogramRaw(0, 1.0, 2.0, 2), (Counts{1, 0}));
  EXPECT_EQ(image.Histogram(0, 3.0, 3.0, 4), (Counts{1, 0, 0, 0}));  // width 0
  EXPECT_EQ(image.Histogram(0, kNaN, 3.0, 2), (Counts{0, 0}));
  EXPECT_TRUE(image.Histogram(0, 0).empty() && image.HistogramRaw(0, -5).empty());
  // Scaled images are counted within the extremes of the values scaled once.
  const CImage scaled = Two(2.0, 32768.0, Policy::Blocks);
  EXPECT_EQ(scaled.HistogramRaw(0, 3), (Counts{1, 0, 1}));
  EXPECT_EQ(scaled.Histogram(0, 3), (Counts{1, 0, 1}));
  EXPECT_EQ(scaled.HistogramRaw(0, 1.0, 3.0, 3), (Counts{1, 0, 1}));
  EXPECT_EQ(scaled.Histogram(0, 32770.0, 32774.0, 3), (Counts{1, 0, 1}));
  // Stored bounds 1 to 5 are 8 to 0 here, and are put in order.
  EXPECT_EQ(Two(-2.0, 10.0, Policy::Blocks).HistogramRaw(0, 1.0, 5.0, 3), (Counts{0, 1, 1}));
}

TEST_F(StatisticsRules, ModeTakesTheFullestFineBinOfTheFullestCoarseOne) {
  const auto manager = MakeManager(4096, 100);
  for (const Policy policy : {Policy::Blocks, Policy::Image}) {
    manager->SetAllocationPolicy(policy);
    const CImage image =
        MakeImage<std::int32_t>(manager, {8, 1, 1}, {0, 15, 15, 41, 44, 44, 47, 100});
    // Coarse bins of 10: 40-49 leads; fine bins of 5: 40-44 leads.
    EXPECT_EQ(image.GetMinMaxMode(0, 10, 2), std::tuple(0.0, 100.0, 42.5));
    EXPECT_EQ(image.GetMinMaxMode(0, 1, 4), std::tuple(0.0, 100.0, 37.5));
    EXPECT_EQ(image.GetMinMaxMode(0, 0, 2), std::tuple(0.0, 100.0, 0.0));
    // More bins than can be counted are refused before memory is taken for them.
    constexpr int kMany = 1 << 29;
    for (const int bins : {100000, kMany / 100000 + 1}) {
      EXPECT_THROW((void)image.GetMinMaxMode(0, bins, 100000), CKorinImageBadAllocException);
    }
    EXPECT_THROW((void)image.HistogramRaw(0, kMany), CKorinImageBadAllocException);
    EXPECT_THROW((void)image.Histogram(0, 0.0, 1.0, kMany), CKorinImageBadAllocException);
    // Of bins that are equally full the first counts.
    const CImage tied = MakeImage<std::int32_t>(manager, {6, 1, 1}, {0, 12, 18, 52, 58, 100});
    EXPECT_EQ(tied.GetMinMaxMode(0, 10, 2), std::tuple(0.0, 100.0, 12.5));
    const CImage flat = MakeImage<float>(manager, {2, 2, 1}, {7, 7, 7, 7});
    EXPECT_EQ(flat.GetMinMaxMode(0, 4, 4), std::tuple(7.0, 7.0, 7.0));
  }
}

TEST_F(StatisticsRules, NaNIsSkippedByExtremesAndKeptByAverages) {
  const auto manager = MakeManager(4096, 100);
  const auto nan = static_cast<float>(kNaN);
  constexpr double kLargest = std::numeric_limits<double>::max();
  for (const Policy policy : {Policy::Blocks, Policy::Planes}) {
    const bool rows = policy == Policy::Blocks;
    manager->SetAllocationPolicy(policy);
    const CImage image =
        MakeImage<float>(manager, {3, 2, 2}, {nan, 2, 1, 9, nan, 4, nan, nan, nan, nan, nan, nan});
    EXPECT_EQ(image.GetMinMaxRaw(0), std::tuple(1.0, 9.0));
    EXPECT_TRUE(std::isnan(image.GetAverageRaw(0)) && std::isnan(image.GetStdDevRaw(0)));
    EXPECT_EQ(image.GetMinMaxRaw(1),
              rows ? std::tuple(kLargest, -kLargest) : std::tuple(kInf, -kInf));
    EXPECT_EQ(image.GetMinMaxRaw(-1), std::tuple(1.0, 9.0));
    const auto histogram = image.HistogramRaw(0, 1.0, 9.0, 9);
    EXPECT_EQ(std::accumulate(histogram.begin(), histogram.end(), 0), 4);
  }
}

TEST_F(StatisticsRules, AllPlanesCombineDifferentlyOnTheTwoPaths) {
  const auto manager = MakeManager(4096, 100);
  for (const Policy policy : {Policy::Blocks, Policy::Planes}) {
    manager->SetAllocationPolicy(policy);
    const CImage image = MakeImage<std::uint8_t>(manager, {2, 1, 2}, {0, 2, 10, 30});
    EXPECT_EQ(image.GetAverageRaw(-1), 10.5);
    // Kernels: the mean of the planes' deviations about the one mean; rows: of all
    // pixels. Mean squares: 2 and 500.
    EXPECT_DOUBLE_EQ(image.GetStdDevRaw(-1, 1.0),
                     policy == Policy::Blocks
                         ? std::sqrt(251.0 - 1.0)
                         : (std::sqrt(2.0 - 1.0) + std::sqrt(500.0 - 1.0)) / 2);
  }
}

TYPED_TEST(Statistics, OfNoPlanesAreTheStartingValues) {
  const auto manager = MakeManager(4096, 10);
  const CImage none(manager, TypeOf<TypeParam>(), 4, 4, 0, 1, 0, std::is_signed_v<TypeParam>,
                    kSilent);
  using Limits = std::numeric_limits<TypeParam>;
  constexpr double kLargest = std::numeric_limits<double>::max();
  EXPECT_EQ(none.GetMinMaxAvrRaw(-1), std::tuple(kLargest, -kLargest, 0.0));
  EXPECT_EQ(none.GetStdDevRaw(-1, 5.0), 0.0);
  manager->SetAllocationPolicy(Policy::Planes);
  EXPECT_EQ(none.GetMinMaxAvrRaw(-1), std::tuple(static_cast<double>(Limits::max()),
                                                 static_cast<double>(Limits::lowest()), 0.0));
}

TEST_F(StatisticsRules, SinglePixels) {
  const auto manager = MakeManager(320, 3);
  const CImage image =
      MakeImage<std::int16_t>(manager, {3, 40, 1}, std::vector<std::int16_t>(120, -1), 2.0, 1.0);
  EXPECT_EQ(image.GetPixel(2, 39, 0), 131071.0);  // unsigned, in spite of the flag
  EXPECT_THROW((void)image.GetPixel(0, 40, 0), CVmMemoryAllocationError);
  EXPECT_THROW((void)image.GetPixel(0, 0, 1), CVmMemoryAllocationError);
  EXPECT_THROW((void)image.GetPixel(3, 0, 0), CVmMemoryAllocationError);
  const auto pixelOf = [&manager]<typename T>(T value, bool isSigned) {
    CImage one = MakeImage<T>(manager, {1, 1, 1}, {value});
    one.SetSigned(isSigned);
    return one.GetPixel(0, 0, 0);
  };
  EXPECT_EQ(pixelOf(std::uint32_t{4294967295u}, false), 4294967295.0);
  EXPECT_EQ(pixelOf(std::uint32_t{4294967295u}, true), -1.0);
  EXPECT_EQ(pixelOf(0.1f, false), double{0.1f});
  EXPECT_EQ(pixelOf(std::uint8_t{200}, true), 200.0);
}

TEST_F(StatisticsRules, AttributesThatOutgrowTheStoreAreRefused) {
  const auto manager = MakeManager(4096, 100);
  CImage image = MakeImage<std::uint8_t>(manager, {4, 4, 1}, std::vector<std::uint8_t>(16, 5));
  const auto expectRefused = [&image] {
    EXPECT_THROW((void)image.GetAverageRaw(0), CVmMemoryAllocationError);
    EXPECT_THROW((void)image.GetPixel(0, 0, 0), CVmMemoryAllocationError);
    EXPECT_THROW((void)image.Fill(0, 1.0), CVmMemoryAllocationError);
    EXPECT_FALSE(
        image.ChangeBits(CImage::DataTypeInt32, false, CImage::ChangeBitsLevel::Raw, kSilent));
  };
  for (const Policy policy : {Policy::Blocks, Policy::Planes}) {
    manager->SetAllocationPolicy(policy);
    image.SetBitsPixel(CImage::DataTypeDouble);
    expectRefused();
    image.SetBitsPixel(CImage::DataTypeInt8);
    image.SetWidth(5);
    expectRefused();
    image.SetWidth(4);
    image.SetPlanes(2);
    expectRefused();
    image.SetPlanes(1);
    // A smaller image is the upper left part of the store.
    image.SetWidth(2);
    image.SetHeight(3);
    EXPECT_TRUE(image.Fill(0, 9.0));
    EXPECT_EQ(image.GetMinMaxRaw(0), std::tuple(9.0, 9.0));
    image.SetWidth(4);
    image.SetHeight(4);
    EXPECT_EQ(image.GetAverageRaw(0), (6 * 9.0 + 10 * 5.0) / 16.0);
    image.Fill(0, 5.0);
    image.SetBitsPixel(static_cast<CImage::DataType>(24));
    constexpr double kLargest = std::numeric_limits<double>::max();
    EXPECT_EQ(image.GetMinMaxAvrRaw(0), policy == Policy::Blocks
                                            ? std::tuple(kLargest, -kLargest, 0.0)
                                            : std::tuple(0.0, 0.0, 0.0));
    EXPECT_EQ(image.GetMinMaxRaw(0), std::tuple(0.0, 0.0));
    EXPECT_EQ(image.GetMinMaxMode(0, 4, 4), std::tuple(0.0, 0.0, 0.0));
    EXPECT_EQ(image.GetStdDevRaw(0), 0.0);
    EXPECT_EQ(image.HistogramRaw(0, 2), std::vector<std::int32_t>(2));
    image.SetBzero(5.0);
    EXPECT_EQ(image.GetPixel(0, 0, 0), 5.0);
    image.SetBzero(0.0);
    EXPECT_FALSE(image.Fill(0, 1.0));
    image.SetBitsPixel(CImage::DataTypeInt8);
  }
}

}  // namespace
}  // namespace korin::test
