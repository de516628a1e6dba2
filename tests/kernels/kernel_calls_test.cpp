#include "kernels/kernel_calls.h"

#include <HalideRuntime.h>

#include <algorithm>

#include "kernels/parallel.h"
#include "kernels/pipelines.h"
#include "kernels/runtime_setup.h"
#include "samples.h"
#include "variant.h"

namespace korin::kernels::test {
namespace {

// Everything that the calls answer about one plane.
template <typename T>
struct Answers {
  T low{}, high{}, low2{}, high2{};
  double average = 0, average2 = 0, deviation = 0;
  std::vector<std::int32_t> counts = std::vector<std::int32_t>(300);
  std::vector<std::int16_t> mapped, shifted;
  std::vector<T> filled;

  friend bool operator==(const Answers&, const Answers&) = default;
};

template <typename T>
Answers<T> Ask(const Plane<T>& plane, std::int64_t bandBytes) {
  Answers<T> a;
  const std::int64_t w = plane.width;
  const std::int64_t h = plane.lines;
  const std::int64_t s = plane.stride;
  a.mapped.resize(plane.samples.size());
  a.shifted.resize(plane.samples.size());
  a.filled.resize(plane.samples.size());
  const T* const p = plane.Data();
  EXPECT_TRUE(MinMax(p, w, h, s, a.low, a.high, bandBytes));
  EXPECT_TRUE(Average(p, w, h, s, a.average, bandBytes));
  EXPECT_TRUE(Deviation(p, w, h, s, a.average, a.deviation, bandBytes));
  EXPECT_TRUE(MinMaxAverage(p, w, h, s, a.low2, a.high2, a.average2, bandBytes));
  EXPECT_TRUE(Histogram(p, w, h, s, 0, 2000, 300, true, a.counts.data(), bandBytes));
  EXPECT_TRUE(NormalizeMapping(p, a.mapped.data(), w, h, s, s, 0.7, 3, 1, 900, bandBytes));
  EXPECT_TRUE(ShiftClamp(p, a.shifted.data(), w, h, s, s, 0.7, 3, -2, bandBytes));
  EXPECT_TRUE(Fill(a.filled.data(), w, h, s, T(9), bandBytes));
  return a;
}

TEST(KernelCalls, SameBitsForEveryBandAndThreadCount) {
  ForEachElement([]<typename T>(std::type_identity<T>) {
    for (const std::int32_t padding : {0, 6}) {
      const Plane<T> plane(611, 173, padding, Content::kCamera, 4);
      SetThreadCount(1);
      const Answers<T> one = Ask(plane, kBandBytes);
      EXPECT_EQ(one.average, one.average2);
      for (const int threads : {1, 2, 5}) {
        SetThreadCount(threads);
        for (const std::int64_t band : {std::int64_t{20000}, std::int64_t{5000}, kBandBytes}) {
          EXPECT_TRUE(Ask(plane, band) == one) << threads << " threads, bands of " << band;
        }
      }
    }
  });
  SetThreadCount(0);
}

TEST(KernelCalls, NothingToDoAndWrongArguments) {
  std::uint16_t pixel = 5;
  std::uint16_t low = 1;
  std::uint16_t high = 1;
  double value = 9.0;
  EXPECT_TRUE(MinMax<std::uint16_t>(nullptr, 0, 5, 0, low, high));
  EXPECT_TRUE(low == 65535 && high == 0);
  EXPECT_TRUE(Average<std::uint16_t>(nullptr, 5, 0, 5, value));
  EXPECT_EQ(value, 0.0);
  std::int32_t counts[2] = {4, 4};
  EXPECT_TRUE(Histogram<std::uint16_t>(nullptr, 0, 0, 0, 0, 1, 2, false, counts));
  EXPECT_EQ(counts[0] + counts[1], 0);
  EXPECT_TRUE(Histogram<std::uint16_t>(&pixel, 1, 1, 1, 0, 1, 0, false, nullptr));
  EXPECT_TRUE(Fill<std::uint16_t>(nullptr, -1, 3, 1, 4));

  EXPECT_FALSE(Average<std::uint16_t>(nullptr, 5, 5, 5, value));
  EXPECT_FALSE(MinMax<std::uint16_t>(nullptr, 5, 5, 5, low, high));
  EXPECT_FALSE(Average<std::uint16_t>(&pixel, 5, 1, 4, value)) << "stride below the width";
  EXPECT_FALSE(Histogram(&pixel, 1, 1, 1, 0, 1, 2, false, nullptr));
  EXPECT_FALSE(Histogram(&pixel, 1, 1, 1, 0, 1, 1 << 30, false, counts));
  // A line that no pipeline can address; lines beyond all memory that are not read.
  EXPECT_FALSE(Fill(&pixel, std::int64_t{1} << 31, 1, std::int64_t{1} << 31, pixel));
  EXPECT_FALSE(Fill(&pixel, 1, 1, std::numeric_limits<std::int64_t>::max(), pixel));
}

TEST(KernelCalls, FailureIsAnAnswerNotAnAbort) {
  EnsureKernelRuntime();
  const Plane<std::uint16_t> plane(16, 64);
  double value = 0.0;
  const auto old = halide_set_custom_malloc([](void*, std::size_t) -> void* { return nullptr; });
  testing::internal::CaptureStderr();
  const bool succeeded = Average(plane.Data(), 16, 64, 16, value);
  const std::string told = testing::internal::GetCapturedStderr();
  halide_set_custom_malloc(old);
  EXPECT_FALSE(succeeded);
  EXPECT_EQ(told.rfind("korinimage: pixel kernel: ", 0), 0U) << told;
  EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 1);
  EXPECT_TRUE(Average(plane.Data(), 16, 64, 16, value));

  // A descriptor of another element type is refused by the pipeline itself.
  std::uint8_t byte = 0;
  PixelBuffer wrong(&byte, 1, 1, 1);
  PixelBuffer output(&value);
  testing::internal::CaptureStderr();
  EXPECT_NE(Pipelines<float>().getdev(wrong, 0.0, output), 0);
  EXPECT_FALSE(testing::internal::GetCapturedStderr().empty());
}

}  // namespace
}  // namespace korin::kernels::test
