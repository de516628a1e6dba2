#pragma once

#include <cstdint>
#include <tuple>
#include <vector>

#include "image/pixel_access.h"

// Statistics of physical values (stored x BSCALE + BZERO), row by row: the row
// path. `plane` < 0: all planes as one set of pixels. Sums take each row in a fixed
// number of lanes and add the rows in order, so results do not depend on the block
// layout, the budget or the number of threads.
namespace korin::row_path {

// Start from the largest double and its negative, which an image without pixels
// reports; NaN is skipped.
std::tuple<double, double> MinMax(const PixelView& view, std::int64_t plane);
std::tuple<double, double, double> MinMaxAverage(const PixelView& view, std::int64_t plane);
double Average(const PixelView& view, std::int64_t plane);  // 0 without pixels
// sqrt(sum over planes of (sum of squares / N) - mean^2).
double Deviation(const PixelView& view, std::int64_t plane, double mean);
// Counts of trunc((physical - min) / binWidth) for bins 0 ... bins - 1; others are
// not counted. A bin width of 0 counts what equals min in bin 0. bins >= 1.
std::vector<std::int32_t> Histogram(const PixelView& view, std::int64_t plane, double min,
                                    double binWidth, std::int32_t bins);

}  // namespace korin::row_path
