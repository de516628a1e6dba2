#pragma once

#include <cstdint>
#include <limits>

#include "kernels/element.h"

// Loops over one row of samples that the compiler alone does not turn into good
// vectors, written once (row_loops_body.h) and compiled for SSE4.1 and for AVX. All
// forms give the same bits.
namespace korin::kernels {

// Where a physical value p = v * bscale + bzero is counted: q = (p - min) / width,
// truncated, for -1 < q < bins; elsewhere nowhere. A width of 0 counts what equals
// min in bin 0.
struct PhysicalBins {
  double bscale;
  double bzero;
  double min;
  double width;
  std::int32_t bins;
};

// Sum and extremes of a row's physical values; a NaN is no extreme, a zero is +0.
struct PhysicalRow {
  double sum = 0.0;
  double min = std::numeric_limits<double>::max();
  double max = -std::numeric_limits<double>::max();
};

template <typename T>
struct RowLoops {
  // Sums in eight lanes by x mod 8, folded 4 apart, then 2, then 1. Of v * scale,
  // the first sample divided by `divisor` instead unless that is 0.
  double (*scaledSum)(const T* row, std::int64_t width, double scale, double divisor);
  // Of v * v * scale.
  double (*scaledSquareSum)(const T* row, std::int64_t width, double scale);
  // Of p and of p * p, where p = v * bscale + bzero.
  double (*physicalSum)(const T* row, std::int64_t width, double bscale, double bzero);
  PhysicalRow (*physicalSumAndExtremes)(const T* row, std::int64_t width, double bscale,
                                        double bzero);
  double (*physicalSquareSum)(const T* row, std::int64_t width, double bscale, double bzero);
  // The bin of each sample; `rule.bins` for nowhere.
  void (*binsOf)(const T* samples, std::int64_t count, const PhysicalBins& rule,
                 std::int32_t* cells);
};

// The form for this processor, chosen once per process.
template <typename T>
const RowLoops<T>& RowLoopsOfThisProcessor();

// The two forms.
namespace sse41 {
template <typename T>
const RowLoops<T>& Loops();
}
namespace avx {
template <typename T>
const RowLoops<T>& Loops();
}

}  // namespace korin::kernels
