#include "variant.h"

#include <HalideRuntime.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <string_view>

#include "kernels/kernel_calls.h"
#include "kernels/runtime_setup.h"

namespace korin::kernels::test {
namespace {

bool ForcedToSse41() {
  const char* const wanted = std::getenv("KORIN_KERNEL_VARIANT");
  return wanted != nullptr && std::string_view(wanted) == "sse41";
}

std::atomic<int> g_questions{0};
std::atomic<bool> g_askedForAvxAndSse41{true};

int Answer(int count, const std::uint64_t* features) {
  ++g_questions;
  const auto has = [&](int feature) { return (features[feature / 64] >> (feature % 64) & 1) != 0; };
  if (count != 2 || !has(halide_target_feature_avx) || !has(halide_target_feature_sse41)) {
    g_askedForAvxAndSse41 = false;
  }
  return ForcedToSse41() ? 0 : halide_default_can_use_target_features(count, features);
}

class Preparation : public testing::Environment {
  void SetUp() override {
    EnsureKernelRuntime();
    halide_set_custom_can_use_target_features(Answer);
    RecordProperty();
  }
  static void RecordProperty() {
    testing::Test::RecordProperty("variant", VariantUnderTest());
    std::printf("kernels under test: %s\n", VariantUnderTest());
  }
};
[[maybe_unused]] testing::Environment* const g_preparation =
    testing::AddGlobalTestEnvironment(new Preparation);

TEST(Variants, EachEntryAsksOnceForBothFeatures) {
  std::uint16_t pixels[3] = {1, 2, 3};
  double average = 0.0;
  const int before = g_questions;
  ASSERT_TRUE(Average(pixels, 3, 1, 3, average));
  EXPECT_EQ(g_questions, before + 1);
  ASSERT_TRUE(Average(pixels, 3, 1, 3, average));
  EXPECT_EQ(g_questions, before + 1);
  EXPECT_TRUE(g_askedForAvxAndSse41);
}

}  // namespace

const char* VariantUnderTest() {
  return !ForcedToSse41() && __builtin_cpu_supports("avx") != 0 ? "AVX" : "SSE4.1";
}

}  // namespace korin::kernels::test
