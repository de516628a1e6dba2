#pragma once

#include <cstdint>
#include <limits>

#include "kernels/element.h"

// Loops over one row of samples that the compiler alone does not turn into good
// vectors, written once (row_loops_body.h) and compiled for SSE4.1 and for AVX. All
// forms give the same bits.
namespace korin::kernels {

// Where a value p = v * bscale + bzero is counted: q = (p - min) / width + first, or
// (p - min) * width + first where `multiplied`, truncated, for -1 < q < bins; elsewhere
// nowhere. A division by 0 counts what equals min in bin 0.
struct BinRule {
  double bscale;
  double bzero;
  double min;
  double width;
  std::int32_t bins;
  double first = 0.0;
  bool multiplied = false;
};

// Cells to count in: those of sample x begin at copies[x mod 4]. Neighbouring samples,
// which are often alike, need not wait for each other's increment where these differ.
struct CountTables {
  static constexpr std::int64_t kCopies = 4;
  std::uint32_t* copies[kCopies];
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
  void (*binsOf)(const T* samples, std::int64_t count, const BinRule& rule, std::int32_t* cells);
  // Adds 1 to the cell of each sample's bin; cell `rule.bins` is for nowhere.
  void (*countBins)(const T* samples, std::int64_t count, const BinRule& rule,
                    const CountTables& tables);
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
