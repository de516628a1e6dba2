#include "kernels/parallel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <vector>

#include "kernels/scratch_cache.h"

namespace korin {
namespace {

TEST(ParallelFor, EveryStepOnceAlsoNested) {
  for (const int threads : {1, 2, 5}) {
    SetThreadCount(threads);
    EXPECT_EQ(GetThreadCount(), threads);
    std::vector<std::atomic<int>> seen(40 * 25);
    ParallelFor(40, [&](std::int64_t i) {
      ParallelFor(25, [&](std::int64_t j) { ++seen[static_cast<std::size_t>(i * 25 + j)]; });
    });
    for (const auto& count : seen) EXPECT_EQ(count, 1);
  }
  SetThreadCount(0);
  EXPECT_GE(GetThreadCount(), 1);
  int steps = 0;
  ParallelFor(0, [&](std::int64_t) { ++steps; });
  ParallelFor(-3, [&](std::int64_t) { ++steps; });
  ParallelFor(1, [&](std::int64_t) { ++steps; });
  EXPECT_EQ(steps, 1);
}

TEST(ParallelFor, AnExceptionReachesTheCaller) {
  for (const int threads : {1, 3}) {
    SetThreadCount(threads);
    std::atomic<int> begun{0};
    EXPECT_THROW(ParallelFor(1000,
                             [&](std::int64_t i) {
                               ++begun;
                               if (i == 3) throw std::runtime_error("step 3");
                             }),
                 std::runtime_error);
    EXPECT_GT(begun, 0);
    // The pool works on afterwards.
    std::atomic<int> done{0};
    ParallelFor(10, [&](std::int64_t) { ++done; });
    EXPECT_EQ(done, 10);
  }
  SetThreadCount(0);
}

#if GTEST_HAS_DEATH_TEST && !defined(GTEST_OS_WINDOWS)
// A forked child has none of the pool's threads.
TEST(ParallelForDeathTest, AForkedChildWorksAndEnds) {
  SetThreadCount(3);
  const auto run = [] {
    std::atomic<int> done{0};
    ParallelFor(100, [&](std::int64_t) { ++done; });
    return done.load();
  };
  EXPECT_EQ(run(), 100);
  EXPECT_EXIT(std::exit(run()), testing::ExitedWithCode(100), "");
  EXPECT_EQ(run(), 100);
  SetThreadCount(0);
}
#endif

TEST(ScratchCache, ReusesBlocksWithinItsLimit) {
  ScratchCache cache;
  void* const first = cache.Take(100000);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(first) % 64, 0U);
  std::memset(first, 1, 100000);
  cache.Give(first);
  EXPECT_EQ(cache.Take(99000), first) << "a request of like size takes the cached block";
  void* const small = cache.Take(1);
  EXPECT_NE(small, first);
  cache.Give(small);
  cache.Give(first);
  void* const large = cache.Take(std::size_t{100} << 20);
  ASSERT_NE(large, nullptr);
  cache.Give(large);
  EXPECT_LT(cache.CachedBytes(), std::size_t{33} << 20) << "large blocks go back";
  EXPECT_EQ(cache.Take(std::numeric_limits<std::size_t>::max() - 8), nullptr);
  cache.Give(nullptr);
}

}  // namespace
}  // namespace korin
