// What the histogram pipelines call to count: tables of each thread's own, which no
// schedule can say.
#include <HalideRuntime.h>

#include <algorithm>
#include <exception>
#include <type_traits>

#include "kernels/sample_counter.h"

namespace korin::kernels {
namespace {

// Bins of stored values from fMin upward, or mirrored, at least 1 wide.
template <typename T>
BinRule RuleOf(double fMin, double fMax, std::int32_t bins, bool inverse) {
  const double wanted = (fMax - fMin) / bins;
  const double width = wanted > 1.0 ? wanted : 1.0;
  BinRule rule{1.0, 0.0, fMin, width, bins};
  rule.multiplied = std::is_integral_v<T>;
  if (rule.multiplied) rule.width = 1.0 / width;
  if (inverse) {
    // fMin - v is -(v - fMin), to the last bit.
    rule.width = -rule.width;
    rule.first = bins;
  }
  return rule;
}

template <typename T>
void CountPlane(const halide_buffer_t& input, const BinRule& rule, std::int32_t* counts) {
  const std::int64_t width = input.dim[0].extent;
  const std::int64_t height = input.dim[1].extent;
  const std::int64_t bytesPerRow =
      std::int64_t{input.dim[1].stride} * static_cast<std::int64_t>(sizeof(T));
  std::fill_n(counts, rule.bins, 0);
  SampleCounter<T> counter(rule, width * height, counts);
  std::vector<RowStretch> stretches;
  const RowPieces pieces(height, bytesPerRow);
  for (std::int64_t row = 0; row < height; row += pieces.rowsPerPiece) {
    stretches.push_back(
        {input.host + row * bytesPerRow, row, std::min(pieces.rowsPerPiece, height - row)});
  }
  counter.Count(stretches, width, bytesPerRow);
  counter.Finish();
}

}  // namespace
}  // namespace korin::kernels

// The whole input is counted, from (x, y) on. Buffers without memory ask which part of
// them is going to be used.
extern "C" int korin_histogram(halide_buffer_t* input, std::int32_t x, std::int32_t width,
                               std::int32_t y, std::int32_t height, double fMin, double fMax,
                               std::int32_t bins, bool inverse, halide_buffer_t* histogram) {
  using namespace korin::kernels;
  if (input->is_bounds_query()) {
    input->dim[0].min = x;
    input->dim[0].extent = width;
    input->dim[1].min = y;
    input->dim[1].extent = height;
    return 0;
  }
  if (histogram->is_bounds_query()) return 0;
  try {
#define KORIN_ELEMENT(name, T)                                       \
  if (input->type == halide_type_of<T>()) {                          \
    CountPlane<T>(*input, RuleOf<T>(fMin, fMax, bins, inverse),      \
                  reinterpret_cast<std::int32_t*>(histogram->host)); \
    return 0;                                                        \
  }
    KORIN_FOR_EACH_ELEMENT(KORIN_ELEMENT)
#undef KORIN_ELEMENT
  } catch (const std::exception&) {
    return halide_error_code_out_of_memory;
  }
  return halide_error_code_bad_type;
}
