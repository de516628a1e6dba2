#include <algorithm>

#include "kernels/pipelines.h"
#include "kernels/sample_counter.h"
#include "samples.h"
#include "variant.h"

namespace korin::kernels::test {
namespace {

struct Bins {
  double fMin, fMax;
  std::int32_t count;
  bool inverse = false;
};

template <typename T>
std::vector<std::int32_t> CountPlainly(const Plane<T>& plane, const Bins& bins) {
  std::vector<std::int32_t> counts(static_cast<std::size_t>(bins.count));
  const double wanted = (bins.fMax - bins.fMin) / bins.count;
  const double width = wanted > 1.0 ? wanted : 1.0;
  const double scale = 1.0 / width;
  for (std::int32_t y = 0; y < plane.lines; ++y) {
    for (std::int32_t x = 0; x < plane.width; ++x) {
      const double v = static_cast<double>(plane.At(x, y));
      double q = bins.inverse ? bins.fMin - v : v - bins.fMin;
      q = std::is_integral_v<T> ? q * scale : q / width;
      if (bins.inverse) q += bins.count;
      if (q > -1.0 && q < bins.count) ++counts[static_cast<std::size_t>(static_cast<int>(q))];
    }
  }
  return counts;
}

template <typename T>
std::vector<std::int32_t> Count(const Plane<T>& plane, const Bins& bins) {
  // One cell more on either side, which must stay as it is.
  std::vector<std::int32_t> cells(static_cast<std::size_t>(bins.count) + 2, -7);
  PixelBuffer input = plane.Describe();
  PixelBuffer output(cells.data() + 1, bins.count);
  const auto& pipelines = Pipelines<T>();
  const auto pipeline = bins.inverse ? pipelines.histogram_inverse : pipelines.histogram;
  EXPECT_EQ(pipeline(input, bins.fMin, bins.fMax, bins.count, output), 0);
  EXPECT_TRUE(cells.front() == -7 && cells.back() == -7);
  return {cells.begin() + 1, cells.end() - 1};
}

TEST(Histograms, EqualPlainLoops) {
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const Bins allBins[] = {{0, 256, 256},      {0, 100, 256},        {-40000, 40000, 1000},
                          {0, 65536, 65536},  {1000, 1000, 7},      {0.25, 1, 256},
                          {-3e9, 5e9, 4500},  {900, 960, 1},        {500, -500, 64},
                          {kNan, 1, 16},      {0, kNan, 16},        {-kInfinity, kInfinity, 16},
                          {0, kInfinity, 16}, {-1e300, 1e300, 300}, {-32768.5, 32767.25, 70001}};
  ForEachElement([&]<typename T>(std::type_identity<T>) {
    const auto check = [&](const Plane<T>& plane) {
      for (Bins bins : allBins) {
        for (const bool inverse : {false, true}) {
          bins.inverse = inverse;
          ASSERT_EQ((Count<T>(plane, bins)), CountPlainly(plane, bins))
              << plane.width << " x " << plane.lines << ", " << sizeof(T) << " bytes, "
              << bins.count << " bins from " << bins.fMin << " to " << bins.fMax;
        }
      }
    };
    check(Plane<T>(1027, 259, 0, Content::kCamera, 1));
    check(Plane<T>(300, 35, 1, Content::kHostile, 2));
    check(Plane<T>(3, 5000, 0, Content::kFullRange, 3));
    if constexpr (sizeof(T) <= 2) {
      // Large enough for every way of counting values, and flat in places.
      Plane<T> large(1027, 600, 3, Content::kFullRange, 4);
      std::fill_n(large.samples.begin() + 5000, 200000, T{200});
      check(large);
    }
    // More bins than fit the scratch.
    const Plane<T> small(61, 37, 1, Content::kFullRange, 5);
    const Bins many{-3e9, 5e9, 5000000};
    ASSERT_TRUE((Count<T>(small, many)) == CountPlainly(small, many)) << sizeof(T) << " bytes";
    for (const auto& [width, lines] : SmallShapes()) {
      const Plane<T> plane(width, lines, width % 3, Content::kCamera, 9);
      const Bins bins{10, 2000, 300, width % 2 == 0};
      ASSERT_EQ((Count<T>(plane, bins)), CountPlainly(plane, bins)) << width << " x " << lines;
    }
  });
}

// Bins of physical values, whichever tables they are counted in; tables stay small.
TEST(Histograms, OfPhysicalValues) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const BinRule rules[] = {{1, 0, 0, 257.5, 300},      {-0.7, 40000, -9, 1.25, 60000},
                           {1, -32768, 0, 0, 5},       {2, 10, 1e3, 1e-3, 5000000},
                           {1, 0, 70000, -1.5, 90000}, {1, 0, 0, kInfinity, 2}};
  SetThreadCount(5);
  ForEachElement([&]<typename T>(std::type_identity<T>) {
    for (const auto& [width, lines] :
         {std::pair(61, 37), {1027, 4300 / static_cast<int>(sizeof(T))}}) {
      const Plane<T> plane(width, lines, 3, Content::kHostile, 8);
      const auto bytesPerRow = std::int64_t{plane.stride} * std::int64_t{sizeof(T)};
      const auto bytes = reinterpret_cast<BYTE*>(const_cast<T*>(plane.Data()));
      const std::vector<RowStretch> stretches = {{bytes, 0, 30},
                                                 {bytes + 30 * bytesPerRow, 30, lines - 30}};
      for (const BinRule& rule : rules) {
        std::vector<std::int32_t> wanted(static_cast<std::size_t>(rule.bins), 1);
        std::vector<std::int32_t> counts = wanted;
        for (std::int32_t y = 0; y < lines; ++y) {
          for (std::int32_t x = 0; x < width; ++x) {
            const double p = static_cast<double>(plane.At(x, y)) * rule.bscale + rule.bzero;
            const double q =
                rule.width == 0 ? (p == rule.min ? 0 : -1) : (p - rule.min) / rule.width;
            if (q > -1 && q < rule.bins) ++wanted[static_cast<std::size_t>(static_cast<int>(q))];
          }
        }
        SampleCounter<T> counter(rule, std::int64_t{width} * lines, counts.data());
        EXPECT_LE(counter.ScratchBytes(), 16 << 20);
        counter.Count(stretches, width, bytesPerRow);
        counter.Finish();
        ASSERT_TRUE(counts == wanted) << sizeof(T) << " bytes, " << rule.bins << " bins";
      }
    }
  });
  SetThreadCount(0);
}

TEST(Histograms, EndsOfTheRange) {
  Plane<std::uint16_t> plane(256, 256);
  for (std::int32_t i = 0; i < 65536; ++i)
    plane.At(i % 256, i / 256) = static_cast<std::uint16_t>(i);
  // Mirrored, 0 has index 256 and is not counted, 65535 is in bin 0.
  auto counts = Count(plane, {0, 65536, 256, true});
  EXPECT_EQ(counts[255], 256);
  EXPECT_EQ(counts[0], 255);
  // Values less than one bin width below fMin are truncated into bin 0.
  counts = Count(plane, {1000, 1000 + 1024, 256});
  EXPECT_EQ(counts[0], 4 + 3);
  EXPECT_EQ(counts[1], 4);
  EXPECT_EQ(counts[255], 4);

  Plane<float> narrow(4, 1);
  const float values[] = {0.0F, 0.5F, 0.999F, 1.0F};
  for (std::int32_t x = 0; x < 4; ++x) narrow.At(x, 0) = values[x];
  const auto few = Count(narrow, {0, 1, 256});
  EXPECT_EQ(few[0], 3) << "a bin is never narrower than 1";
  EXPECT_EQ(few[1], 1);
}

}  // namespace
}  // namespace korin::kernels::test
