#include <algorithm>

#include "kernels/kernel_calls.h"
#include "kernels/pipelines.h"
#include "kernels/row_sums.h"
#include "samples.h"
#include "variant.h"

namespace korin::kernels::test {
namespace {

struct Area {
  std::int32_t startX, endX, startY, endY;
};

// Lane x mod 8 of each row, folded 4, 2, 1 apart; rows in row order.
template <typename T, typename Term>
double LaneSum(const Plane<T>& plane, const Area& area, Term term) {
  double total = 0.0;
  for (std::int32_t y = area.startY; y < area.endY; ++y) {
    double l[8] = {};
    for (std::int32_t x = area.startX; x < area.endX; ++x) {
      l[(x - area.startX) % 8] += term(static_cast<double>(plane.At(x, y)), x == area.startX);
    }
    total += ((l[0] + l[4]) + (l[2] + l[6])) + ((l[1] + l[5]) + (l[3] + l[7]));
  }
  return total;
}

template <typename T>
double MeanOf(const Plane<T>& plane, const Area& area) {
  const std::int64_t width = area.endX - area.startX;
  const double n = static_cast<double>(width * (area.endY - area.startY));
  return LaneSum(plane, area, [&](double v, bool first) {
    return first && width % 2 != 0 ? v / n : v * (1.0 / n);
  });
}

template <typename T>
double DeviationOf(const Plane<T>& plane, double mean) {
  const Area all{0, plane.width, 0, plane.lines};
  const double scale = 1.0 / (static_cast<double>(plane.width) * plane.lines);
  return std::sqrt(LaneSum(plane, all, [&](double v, bool) { return v * v * scale; }) -
                   mean * mean);
}

template <typename T>
std::pair<T, T> ExtremesOf(const Plane<T>& plane) {
  using Limits = std::numeric_limits<T>;
  T low = Limits::has_infinity ? Limits::infinity() : Limits::max();
  T high = Limits::has_infinity ? -Limits::infinity() : Limits::lowest();
  for (std::int32_t y = 0; y < plane.lines; ++y) {
    for (std::int32_t x = 0; x < plane.width; ++x) {
      if (plane.At(x, y) < low) low = plane.At(x, y);
      if (plane.At(x, y) > high) high = plane.At(x, y);
    }
  }
  return {low + T{0}, high + T{0}};  // a zero is +0
}

template <typename T>
bool SameExtremes(std::pair<T, T> got, std::pair<T, T> wanted) {
  return std::memcmp(&got.first, &wanted.first, sizeof(T)) == 0 &&
         std::memcmp(&got.second, &wanted.second, sizeof(T)) == 0;
}

template <typename T>
void CheckPlane(const Plane<T>& plane) {
  SCOPED_TRACE(testing::Message() << plane.width << " x " << plane.lines << ", " << sizeof(T)
                                  << (std::is_signed_v<T> ? " signed" : " unsigned") << " bytes");
  const auto& pipelines = Pipelines<T>();
  PixelBuffer input = plane.Describe();
  const Area all{0, plane.width, 0, plane.lines};
  const double mean = MeanOf(plane, all);
  const auto extremes = ExtremesOf(plane);

  double value = -1.0;
  PixelBuffer output(&value);
  ASSERT_EQ(pipelines.average(input, 0, plane.width, 0, plane.lines, output), 0);
  ASSERT_TRUE(SameDouble(value, mean)) << value << " instead of " << mean;

  const Area part{plane.width / 3, plane.width, plane.lines / 3, plane.lines};
  ASSERT_EQ(pipelines.average(input, part.startX, part.endX, part.startY, part.endY, output), 0);
  ASSERT_TRUE(SameDouble(value, MeanOf(plane, part)));

  const double about = std::isfinite(mean) ? mean : 1.5;
  ASSERT_EQ(pipelines.getdev(input, about, output), 0);
  ASSERT_TRUE(SameDouble(value, DeviationOf(plane, about)));

  std::pair<T, T> got{T(1), T(1)};
  PixelBuffer low(&got.first);
  PixelBuffer high(&got.second);
  ASSERT_EQ(pipelines.getminmax(input, low, high), 0);
  ASSERT_TRUE(SameExtremes(got, extremes)) << +got.first << " " << +got.second;

  got = {T(1), T(1)};
  ASSERT_EQ(pipelines.getminmaxavr(input, low, high, output), 0);
  ASSERT_TRUE(SameExtremes(got, extremes)) << +got.first << " " << +got.second;
  ASSERT_TRUE(SameDouble(value, mean));

  // Row by row, as planes cut into blocks are summed.
  const double n = static_cast<double>(plane.width) * plane.lines;
  double byRows = 0.0;
  double squares = 0.0;
  for (std::int32_t y = 0; y < plane.lines; ++y) {
    byRows += RowScaledSum(&plane.At(0, y), plane.width, n);
    squares += RowScaledSquareSum(&plane.At(0, y), plane.width, n);
  }
  ASSERT_TRUE(SameDouble(byRows, mean));
  ASSERT_TRUE(SameDouble(std::sqrt(squares - about * about), DeviationOf(plane, about)));
}

TEST(Statistics, EqualPlainLoops) {
  ForEachElement([]<typename T>(std::type_identity<T>) {
    std::uint32_t seed = 100;
    const auto check = [&seed](const auto& shapes) {
      for (const auto& [width, lines] : shapes) {
        ++seed;
        for (const Content content : {Content::kFullRange, Content::kHostile}) {
          if (content == Content::kHostile && !std::is_floating_point_v<T>) continue;
          CheckPlane(Plane<T>(width, lines, width % 4, content, seed));
          if (testing::Test::HasFatalFailure()) return;
        }
      }
    };
    check(SmallShapes());
    check(LargeShapes());
  });
}

TEST(Statistics, AverageOfNothingAndOfThirds) {
  Plane<std::uint16_t> plane(3, 1);
  plane.At(0, 0) = 1;
  plane.At(1, 0) = 2;
  plane.At(2, 0) = 4;
  PixelBuffer input = plane.Describe();
  double value = -1.0;
  PixelBuffer output(&value);
  const auto average = Pipelines<std::uint16_t>().average;
  ASSERT_EQ(average(input, 0, 3, 0, 1, output), 0);
  EXPECT_EQ(value, 1.0 / 3.0 + 2.0 * (1.0 / 3.0) + 4.0 * (1.0 / 3.0));
  for (const Area area : {Area{1, 1, 0, 1}, Area{2, 1, 0, 1}, Area{0, 3, 1, 1}}) {
    value = -1.0;
    ASSERT_EQ(average(input, area.startX, area.endX, area.startY, area.endY, output), 0);
    EXPECT_EQ(value, 0.0);
  }
}

// A NaN at any place is skipped by the extremes and taken by the mean; zeros of
// either sign come out as +0. A plane of nothing else leaves the starting values.
TEST(Statistics, NanAndZeros) {
  const auto& pipelines = Pipelines<float>();
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  for (std::int32_t at = 0; at <= 70; ++at) {
    Plane<float> plane(70, 1);
    for (std::int32_t x = 0; x < 70; ++x) {
      plane.At(x, 0) = x == at || at == 70 ? std::nanf("") : x % 2 == 0 ? 0.0F : -0.0F;
    }
    const auto wanted = at == 70 ? std::pair(kInfinity, -kInfinity) : std::pair(0.0F, 0.0F);
    PixelBuffer input = plane.Describe();
    std::pair both(1.0F, 1.0F), alone(1.0F, 1.0F);
    double mean = 1.0;
    PixelBuffer low(&both.first), high(&both.second), average(&mean);
    ASSERT_EQ(pipelines.getminmaxavr(input, low, high, average), 0);
    EXPECT_TRUE(SameExtremes(both, wanted));
    EXPECT_TRUE(std::isnan(mean));
    PixelBuffer lowest(&alone.first), highest(&alone.second);
    ASSERT_EQ(pipelines.getminmax(input, lowest, highest), 0);
    EXPECT_TRUE(SameExtremes(alone, wanted));
  }
}

TEST(Statistics, FillAndCopyTouchOnlyTheirArea) {
  std::vector<std::pair<std::int32_t, std::int32_t>> shapes = SmallShapes();
  shapes.emplace_back(1027, 97);
  for (const auto& [width, lines] : shapes) {
    ForEachElement([width = width, lines = lines]<typename T>(std::type_identity<T>) {
      Plane<T> got(width, lines, 5);
      Plane<T> wanted(width, lines, 5);
      for (std::int32_t y = 0; y < lines; ++y) std::fill_n(&wanted.At(0, y), width, T(201));
      PixelBuffer output = got.Describe();
      ASSERT_EQ(Pipelines<T>().fill(T(201), output), 0);
      ASSERT_TRUE(SameBits(got, wanted));
    });
    const Plane<std::uint8_t> source(width, lines, 2, Content::kFullRange, 5);
    Plane<std::uint8_t> got(width, lines, 7);
    Plane<std::uint8_t> wanted(width, lines, 7);
    for (std::int32_t y = 0; y < lines; ++y) {
      std::copy_n(&source.At(0, y), width, &wanted.At(0, y));
    }
    ASSERT_TRUE(CopyBytes(source.Data(), got.Data(), width, lines, width + 2, width + 7, 2000));
    ASSERT_TRUE(SameBits(got, wanted));
  }
}

TEST(Statistics, PasteMovesTheRectangle) {
  const Plane<float> source(37, 9, 0, Content::kFullRange, 3);
  const FloatPlane<const float> from{source.Data(), 37, 9, 37};
  struct Case {
    Area area;
    std::int32_t shiftX, shiftY;
  };
  for (const Case& c :
       {Case{{0, 37, 0, 9}, 0, 0}, Case{{3, 29, 2, 7}, 5, -1}, Case{{3, 29, 2, 7}, -10, 3},
        Case{{-5, 50, -5, 50}, 20, 4}, Case{{4, 4, 0, 9}, 0, 0}, Case{{9, 3, 0, 9}, 0, 0},
        Case{{0, 37, 0, 9}, 400, 0}, Case{{0, 37, 0, 9}, 0, -400}}) {
    Plane<float> got(31, 11, 2);
    Plane<float> wanted(31, 11, 2);
    for (std::int32_t y = c.area.startY; y < c.area.endY; ++y) {
      for (std::int32_t x = c.area.startX; x < c.area.endX; ++x) {
        const std::int32_t toX = x + c.shiftX;
        const std::int32_t toY = y + c.shiftY;
        if (x < 0 || x >= 37 || y < 0 || y >= 9) continue;
        if (toX < 0 || toX >= 31 || toY < 0 || toY >= 11) continue;
        wanted.At(toX, toY) = source.At(x, y);
      }
    }
    PixelBuffer input = source.Describe();
    PixelBuffer output = got.Describe();
    ASSERT_EQ(Untyped().paste_float(input, c.area.startX, c.area.endX, c.area.startY, c.area.endY,
                                    c.shiftX, c.shiftY, output),
              0);
    EXPECT_TRUE(SameBits(got, wanted)) << "shift " << c.shiftX << ", " << c.shiftY;
    std::fill(got.samples.begin(), got.samples.end(), 77.0F);
    ASSERT_TRUE(PasteFloat(from, {got.Data(), 31, 11, 33}, c.area.startX, c.area.endX,
                           c.area.startY, c.area.endY, c.shiftX, c.shiftY));
    EXPECT_TRUE(SameBits(got, wanted)) << "shift " << c.shiftX << ", " << c.shiftY;
  }
  // Whatever the numbers, nothing outside of the target is touched.
  Plane<float> target(31, 11, 2);
  const FloatPlane<float> to{target.Data(), 31, 11, 33};
  constexpr auto kLeast = std::numeric_limits<std::int64_t>::min();
  constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
  for (const std::int64_t shift : {kLeast, kMost}) {
    EXPECT_TRUE(PasteFloat(from, to, kLeast, kMost, kLeast, kMost, shift, shift));
  }
  EXPECT_TRUE(PasteFloat(from, to, kMost, kLeast, kMost, kLeast, 0, 0));
  EXPECT_TRUE(SameBits(target, Plane<float>(31, 11, 2)));
}

}  // namespace
}  // namespace korin::kernels::test
