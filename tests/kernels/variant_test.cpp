#include "variant.h"

#include <HalideRuntime.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <string_view>

#include "kernel_headers.h"
#include "kernels/kernel_calls.h"
#include "kernels/pixel_buffer.h"
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

// An entry's arguments as its record tells them: "i" or "o" for buffers with their
// dimensions, "s" for scalars; then type and name.
std::string ArgumentsOf(const halide_filter_metadata_t* record) {
  std::string text;
  for (int i = 0; i < record->num_arguments; ++i) {
    const halide_filter_argument_t& argument = record->arguments[i];
    text += "sio"[argument.kind];
    if (argument.kind != 0) text += std::to_string(argument.dimensions);
    text += "iuf"[argument.type.code] + std::to_string(argument.type.bits) + ":" + argument.name;
    text += ' ';
  }
  return text;
}

template <typename T>
std::string In() {
  constexpr halide_type_t type = PipelineTypeOf<T>();
  return "iuf"[type.code] + std::to_string(type.bits) + ":";
}

TEST(Variants, RecordsNameArgumentsInCallOrder) {
#define KORIN_X(name, T)                                                                         \
  {                                                                                              \
    const std::string t = In<T>();                                                               \
    const std::string input = "i2" + t + "input ";                                               \
    const std::string bins = "sf64:fMin sf64:fMax si32:nBins o1i32:histogram$1 ";                \
    EXPECT_EQ(ArgumentsOf(average_##name##_metadata()),                                          \
              input + "si32:start_x si32:end_x si32:start_y si32:end_y o0f64:average$1 ");       \
    EXPECT_EQ(ArgumentsOf(getminmax_##name##_metadata()),                                        \
              input + "o0" + t + "minmax$1.0 o0" + t + "minmax$1.1 ");                           \
    EXPECT_EQ(ArgumentsOf(getminmaxavr_##name##_metadata()),                                     \
              input + "o0" + t + "minmaxavr$1.0 o0" + t + "minmaxavr$1.1 o0f64:minmaxavr$1.2 "); \
    EXPECT_EQ(ArgumentsOf(getdev_##name##_metadata()), input + "sf64:average o0f64:output$1 ");  \
    EXPECT_EQ(ArgumentsOf(histogram_##name##_metadata()), input + bins);                         \
    EXPECT_EQ(ArgumentsOf(histogram_inverse_##name##_metadata()), input + bins);                 \
    EXPECT_EQ(ArgumentsOf(fill_##name##_metadata()), "s" + t + "value o2" + t + "fill$1 ");      \
  }
  KORIN_FOR_EACH_ELEMENT(KORIN_X)
#undef KORIN_X
#define KORIN_TO(from, S, to, D)                                                           \
  EXPECT_EQ(ArgumentsOf(changebits_normalize_mapping_##from##_to_##to##_metadata()),       \
            "i2" + In<S>() + "input sf64:bscale sf64:bzero sf64:minimum sf64:maximum o2" + \
                In<D>() + "changebits$1 ");                                                \
  EXPECT_EQ(                                                                               \
      ArgumentsOf(changebits_shift_clamp_##from##_to_##to##_metadata()),                   \
      "i2" + In<S>() + "input sf64:bscale sf64:bzero sf64:shift o2" + In<D>() + "changebits$1 ");
#define KORIN_FROM(from, S) KORIN_FOR_EACH_INTEGER_WITH(KORIN_TO, from, S)
  KORIN_FOR_EACH_ELEMENT(KORIN_FROM)
#undef KORIN_FROM
#undef KORIN_TO
#define KORIN_X(from, S, to, D)                                                \
  EXPECT_EQ(ArgumentsOf(changebits_static_cast_##from##_to_##to##_metadata()), \
            "i2" + In<S>() + "input o2" + In<D>() + "changebits$1 ");
  KORIN_FOR_EACH_CAST(KORIN_X)
#undef KORIN_X
  EXPECT_EQ(ArgumentsOf(copy_uint8_metadata()), "i2u8:input o2u8:output$1 ");
  EXPECT_EQ(ArgumentsOf(paste_float_metadata()),
            "i2f32:input si32:start_x si32:end_x si32:start_y si32:end_y si32:shift_x si32:shift_y "
            "o2f32:paste$1 ");
}

}  // namespace

const char* VariantUnderTest() {
  return !ForcedToSse41() && __builtin_cpu_supports("avx") != 0 ? "AVX" : "SSE4.1";
}

}  // namespace korin::kernels::test
