#include "image/row_statistics.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "kernels/kernel_calls.h"
#include "kernels/row_sums.h"
#include "kernels/sample_counter.h"
#include "korinimage/exceptions.h"

namespace korin::row_path {
namespace {

struct Extremes {
  double min = std::numeric_limits<double>::max();
  double max = -std::numeric_limits<double>::max();

  void Take(double value) {
    if (value < min) min = value;
    if (value > max) max = value;
  }
  void Merge(const Extremes& other) {
    if (other.min < min) min = other.min;
    if (other.max > max) max = other.max;
  }
};

struct PlaneRange {
  std::int64_t first;
  std::int64_t end;
};
PlaneRange PlanesOf(const PixelView& view, std::int64_t plane) {
  return plane < 0 ? PlaneRange{0, view.planes} : PlaneRange{plane, plane + 1};
}

double PixelsOf(const PixelView& view, std::int64_t plane) {
  const double onePlane = static_cast<double>(view.width) * static_cast<double>(view.height);
  return plane < 0 ? onePlane * static_cast<double>(view.planes) : onePlane;
}

// The extremes of `lines` rows, `stride` samples apart.
template <typename T>
Extremes ExtremesOf(const T* rows, std::int64_t width, std::int64_t lines, std::int64_t stride,
                    double bscale, double bzero) {
  // Rounding is monotonic, so a finite scaling other than 0 keeps the order of the
  // pixels (or turns it round): the extremes of the stored values are enough.
  Extremes extremes;
  if (std::isfinite(bscale) && std::isfinite(bzero) && bscale != 0.0) {
    T min{};
    T max{};
    if (!kernels::MinMax(rows, width, lines, stride, min, max)) {
      throw CKorinImageBadAllocException("a pixel kernel failed");
    }
    // Rows of NaN only answer (+inf, -inf).
    if (min <= max) {
      extremes.Take(static_cast<double>(min) * bscale + bzero);
      extremes.Take(static_cast<double>(max) * bscale + bzero);
    }
    return extremes;
  }
  for (std::int64_t line = 0; line < lines; ++line) {
    for (std::int64_t x = 0; x < width; ++x) {
      extremes.Take(static_cast<double>(rows[line * stride + x]) * bscale + bzero);
    }
  }
  return extremes;
}

// What the rows of one plane add up to; each part only where it is asked for.
struct PlaneSums {
  Extremes extremes;
  double sum = 0.0;
  double squares = 0.0;
};
struct Wanted {
  bool extremes = false;
  bool sum = false;
  bool squares = false;
};

template <typename T>
PlaneSums MeasurePlane(const PixelView& view, std::int64_t plane, Wanted wanted) {
  const auto rows = static_cast<std::size_t>(std::max<std::int64_t>(view.height, 0));
  std::vector<PlaneSums> parts;
  if (rows > parts.max_size()) throw CKorinImageBadAllocException("no memory for a sum per row");
  parts.resize(rows);
  const std::int64_t stride = view.StrideElements();
  // One visit of a stretch serves all that is wanted, while it is in the cache.
  ForEachStretch<T>(view, plane, [&](const T* first, std::int64_t y, std::int64_t lines) {
    const bool together = wanted.extremes && wanted.sum;
    if (wanted.extremes && !together) {
      parts[static_cast<std::size_t>(y)].extremes =
          ExtremesOf(first, view.width, lines, stride, view.bscale, view.bzero);
    }
    for (std::int64_t line = 0; line < lines; ++line) {
      PlaneSums& part = parts[static_cast<std::size_t>(y + line)];
      const T* const row = first + line * stride;
      if (together) {
        const auto [sum, min, max] = kernels::RowLoopsOfThisProcessor<T>().physicalSumAndExtremes(
            row, view.width, view.bscale, view.bzero);
        part.sum = sum;
        part.extremes = {min, max};
      } else if (wanted.sum) {
        part.sum = kernels::RowPhysicalSum(row, view.width, view.bscale, view.bzero);
      }
      if (wanted.squares) {
        part.squares = kernels::RowPhysicalSquareSum(row, view.width, view.bscale, view.bzero);
      }
    }
  });
  PlaneSums all;
  for (const PlaneSums& part : parts) {
    all.extremes.Merge(part.extremes);
    all.sum += part.sum;
    all.squares += part.squares;
  }
  return all;
}

std::tuple<Extremes, double, double> Measure(const PixelView& view, std::int64_t plane,
                                             Wanted wanted) {
  return DispatchElement(view.kind, [&]<typename T>(std::type_identity<T>) {
    const double count = PixelsOf(view, plane);
    Extremes extremes;
    double average = 0.0;
    double meanSquare = 0.0;
    const auto [first, end] = PlanesOf(view, plane);
    for (std::int64_t p = first; p < end && count >= 1.0; ++p) {
      const PlaneSums sums = MeasurePlane<T>(view, p, wanted);
      extremes.Merge(sums.extremes);
      average += sums.sum / count;
      meanSquare += sums.squares / count;
    }
    return std::tuple(extremes, average, meanSquare);
  });
}

}  // namespace

std::tuple<double, double> MinMax(const PixelView& view, std::int64_t plane) {
  const auto [extremes, average, meanSquare] = Measure(view, plane, {.extremes = true});
  return {extremes.min, extremes.max};
}

std::tuple<double, double, double> MinMaxAverage(const PixelView& view, std::int64_t plane) {
  const auto [extremes, average, meanSquare] =
      Measure(view, plane, {.extremes = true, .sum = true});
  return {extremes.min, extremes.max, average};
}

double Average(const PixelView& view, std::int64_t plane) {
  return std::get<1>(Measure(view, plane, {.sum = true}));
}

double Deviation(const PixelView& view, std::int64_t plane, double mean) {
  if (PixelsOf(view, plane) < 1.0) return 0.0;
  const double meanSquare = std::get<2>(Measure(view, plane, {.squares = true}));
  return std::sqrt(meanSquare - mean * mean);
}

std::vector<std::int32_t> Histogram(const PixelView& view, std::int64_t plane, double min,
                                    double binWidth, std::int32_t bins) {
  const kernels::BinRule rule{view.bscale, view.bzero, min, binWidth, bins};
  std::vector<std::int32_t> histogram(static_cast<std::size_t>(bins));
  DispatchElement(view.kind, [&]<typename T>(std::type_identity<T>) {
    const auto [first, end] = PlanesOf(view, plane);
    kernels::SampleCounter<T> counter(rule, view.width * view.height * (end - first),
                                      histogram.data());
    for (std::int64_t p = first; p < end && view.width > 0; ++p) {
      for (std::int64_t y = 0; y < view.height;) {
        const RowBatch batch(*view.store, p, y, view.height - y, BlockIntent::Read, true);
        const std::int64_t bytesPerLine = view.store->GetBytesPerLine();
        counter.Count(CutIntoStretches(batch, bytesPerLine), view.width, bytesPerLine);
        y += batch.RowCount();
      }
    }
    counter.Finish();
  });
  return histogram;
}

}  // namespace korin::row_path
