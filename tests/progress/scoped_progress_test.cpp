#include "korinimage/scoped_progress.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <type_traits>
#include <vector>

#include "support/recording_progress.h"

namespace korin::test {
namespace {

using Calls = std::vector<std::string>;

static_assert(!std::is_copy_constructible_v<ScopedProgress>);
static_assert(!std::is_copy_assignable_v<ImageRowsScopedProgress>);

std::vector<int> Percentages(std::int64_t total) {
  const auto sink = std::make_shared<RecordingProgress>();
  ScopedProgress scope(sink, total);
  for (std::int64_t i = 0; i < total; ++i) scope.Step(i);
  return sink->updates;
}

TEST(ScopedProgress, TellsEachPercentageOnce) {
  EXPECT_EQ(Percentages(3), (std::vector<int>{33, 66, 100}));
  EXPECT_EQ(Percentages(1), (std::vector<int>{100}));
  for (const int total : {100, 1000}) {
    std::vector<int> expected;
    for (int percent = total == 100 ? 1 : 0; percent <= 100; ++percent) expected.push_back(percent);
    EXPECT_EQ(Percentages(total), expected) << total;
  }
  const auto sink = std::make_shared<RecordingProgress>();
  ImageRowsScopedProgress rows(sink, 2, 5);
  for (int plane = 0; plane < 2; ++plane) {
    for (int y = 0; y < 5; ++y) rows.Row(plane, y);
  }
  EXPECT_EQ(sink->updates, (std::vector<int>{10, 20, 30, 40, 50, 60, 70, 80, 90, 100}));
}

TEST(ScopedProgress, OpensAndClosesTheSinkOnEveryWayOut) {
  const auto sink = std::make_shared<RecordingProgress>();
  { const ScopedProgress scope(sink, 0); }
  try {
    ScopedProgress scope(sink, 2);
    scope.Step(0);
    throw SinkError();
  } catch (const SinkError&) {
  }
  EXPECT_EQ(sink->calls, (Calls{"initialize", "finalize", "initialize", "update 50", "finalize"}));
  EXPECT_EQ(sink.use_count(), 1) << "the scope keeps the sink";

  // Nothing to report to, nothing to divide by.
  ScopedProgress none(nullptr, 0);
  none.Step(0);
  ImageRowsScopedProgress rows(nullptr, 0, 0);
  rows.Row(0, 0);
}

TEST(ScopedProgress, TotalsWithoutStepsReportNothing) {
  constexpr std::int64_t max = std::numeric_limits<std::int64_t>::max();
  const auto sink = std::make_shared<RecordingProgress>();
  for (const std::int64_t total : {std::int64_t{0}, std::int64_t{-4}}) {
    ScopedProgress scope(sink, total);
    scope.Step(0);
  }
  for (const auto& [planes, rows] :
       std::vector<std::pair<std::int64_t, std::int64_t>>{{0, 5}, {5, 0}, {-2, -2}, {max, 2}}) {
    ImageRowsScopedProgress scope(sink, planes, rows);
    scope.Row(0, 0);
  }
  EXPECT_TRUE(sink->updates.empty());
  EXPECT_EQ(sink->Count("finalize"), 6);
}

// The products pass 32 bits at 21,474,837 steps, and 64 bits long before the steps do.
TEST(ScopedProgress, LargeTotalsKeepTheirPercentages) {
  for (const std::int64_t total : {std::int64_t{30'000'000}, std::int64_t{1} << 40,
                                   std::numeric_limits<std::int64_t>::max()}) {
    const auto sink = std::make_shared<RecordingProgress>();
    ScopedProgress scope(sink, total);
    scope.Step(total / 2);
    scope.Step(total - 1);
    EXPECT_EQ(sink->updates, (std::vector<int>{50, 100})) << total;
  }
  const auto sink = std::make_shared<RecordingProgress>();
  ImageRowsScopedProgress rows(sink, 3, std::int64_t{1} << 32);
  rows.Row(1, (std::int64_t{1} << 31) - 1);
  rows.Row(2, (std::int64_t{1} << 32) - 1);
  EXPECT_EQ(sink->updates, (std::vector<int>{50, 100}));
}

TEST(ScopedProgress, SinksThatThrow) {
  const auto run = [](int throwAt) {
    const auto sink = std::make_shared<RecordingProgress>();
    sink->throwAt = throwAt;
    bool thrown = false;
    try {
      ScopedProgress scope(sink, 2);
      scope.Step(0);
      scope.Step(1);
    } catch (const SinkError&) {
      thrown = true;
    }
    return std::pair(thrown, sink->calls);
  };
  EXPECT_EQ(run(0), (std::pair(true, Calls{"initialize"})));
  EXPECT_EQ(run(2), (std::pair(true, Calls{"initialize", "update 50", "update 100", "finalize"})));
  EXPECT_EQ(run(3), (std::pair(false, Calls{"initialize", "update 50", "update 100", "finalize"})));
}

}  // namespace
}  // namespace korin::test
