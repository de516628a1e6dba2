#include "kernels/row_loops.h"

#include <HalideRuntime.h>

#include <array>

#include "kernels/runtime_setup.h"

namespace korin::kernels {
namespace {

// Asked as the pipelines ask, so that both always take the same form.
bool HasAvx() {
  static const bool has = [] {
    EnsureKernelRuntime();
    std::array<std::uint64_t, 2> features{};
    for (const int feature : {halide_target_feature_avx, halide_target_feature_sse41}) {
      features[static_cast<std::size_t>(feature / 64)] |= std::uint64_t{1} << (feature % 64);
    }
    return halide_can_use_target_features(static_cast<int>(features.size()), features.data()) != 0;
  }();
  return has;
}

}  // namespace

template <typename T>
const RowLoops<T>& RowLoopsOfThisProcessor() {
  return HasAvx() ? avx::Loops<T>() : sse41::Loops<T>();
}

#define KORIN_ELEMENT(name, T) template const RowLoops<T>& RowLoopsOfThisProcessor<T>();
KORIN_FOR_EACH_ELEMENT(KORIN_ELEMENT)

}  // namespace korin::kernels
