#pragma once

#include <cstdint>
#include <tuple>
#include <vector>

#include "image/pixel_access.h"

// Statistics of stored values, by the kernels: the kernel path. `plane` < 0: all
// planes, combined plane by plane as each function says. Results are the same for
// every block layout, budget and number of threads: where a plane does not lie in
// one block, its rows are measured run by run and merged in row order.
namespace korin::kernel_path {

using MinMaxResult = std::tuple<double, double>;
using MinMaxAverageResult = std::tuple<double, double, double>;

// One plane: a plane of NaN gives (+inf, -inf). All planes: the extremes over the
// planes, starting from the limits of the type, which an image without planes reports.
MinMaxResult MinMax(const PixelView& view, std::int64_t plane);
// All planes: the sum of (plane average / planes).
MinMaxAverageResult MinMaxAverage(const PixelView& view, std::int64_t plane);
double Average(const PixelView& view, std::int64_t plane);
// sqrt(sum(v^2 / N) - mean^2); all planes: the sum of (plane deviation / planes),
// each about the one mean.
double Deviation(const PixelView& view, std::int64_t plane, double mean);
// `bins` >= 1 counts; the kernel of `inverse` mirrors the bins. All planes: the
// sums, modulo 2^32.
std::vector<std::int32_t> Histogram(const PixelView& view, std::int64_t plane, double fMin,
                                    double fMax, std::int32_t bins, bool inverse);

}  // namespace korin::kernel_path
