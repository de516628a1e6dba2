#include "image/kernel_statistics.h"

#include <cmath>
#include <limits>
#include <string>

#include "kernels/kernel_calls.h"
#include "kernels/row_sums.h"
#include "korinimage/exceptions.h"

namespace korin::kernel_path {
namespace {

// What no kernel reports on valid arguments: its runtime failed.
void Require(bool kernelSucceeded) {
  if (!kernelSucceeded) {
    throw CKorinImageBadAllocException("a pixel kernel failed: its scratch memory was refused");
  }
}

// A plane that lies in one block, held in memory while this lives.
class WholePlane {
 public:
  WholePlane(const PixelView& view, std::int64_t plane)
      : m_inOneBlock(view.width > 0 && view.height > 0 && plane < view.store->GetPlanes() &&
                     view.store->GetLineRun(plane, 0).lines >= view.height) {
    if (m_inOneBlock) {
      m_batch.emplace(*view.store, plane, 0, view.height, BlockIntent::Read, true);
    }
  }

  explicit operator bool() const { return m_inOneBlock; }
  template <typename T>
  const T* Pixels() const {
    return reinterpret_cast<const T*>(m_batch->Row(0));
  }

 private:
  bool m_inOneBlock;
  std::optional<RowBatch> m_batch;
};

template <typename T>
struct Extremes {
  T min = std::numeric_limits<T>::has_infinity ? std::numeric_limits<T>::infinity()
                                               : std::numeric_limits<T>::max();
  T max = std::numeric_limits<T>::has_infinity ? -std::numeric_limits<T>::infinity()
                                               : std::numeric_limits<T>::lowest();

  // Strict comparisons: NaN never enters.
  void Merge(const Extremes& other) {
    if (other.min < min) min = other.min;
    if (other.max > max) max = other.max;
  }
};

template <typename T>
Extremes<T> PlaneMinMax(const PixelView& view, std::int64_t plane) {
  // One entry per row that begins a stretch; merged in row order.
  std::vector<Extremes<T>> parts(static_cast<std::size_t>(std::max<std::int64_t>(view.height, 0)));
  ForEachStretch<T>(view, plane, [&](const T* rows, std::int64_t y, std::int64_t lines) {
    Extremes<T>& part = parts[static_cast<std::size_t>(y)];
    Require(kernels::MinMax(rows, view.width, lines, view.StrideElements(), part.min, part.max));
  });
  Extremes<T> all;
  for (const Extremes<T>& part : parts) all.Merge(part);
  return all;
}

// Adds `term(row)` of every row, in row order from zero.
template <typename T, typename Term>
double SumOfRows(const PixelView& view, std::int64_t plane, Term&& term) {
  std::vector<double> sums(static_cast<std::size_t>(std::max<std::int64_t>(view.height, 0)));
  ForEachRow<T>(view, plane, [&](const T* row, std::int64_t y) {
    sums[static_cast<std::size_t>(y)] = term(row);
  });
  double total = 0.0;
  for (const double sum : sums) total += sum;
  return total;
}

double PixelsOf(const PixelView& view) {
  return static_cast<double>(view.width) * static_cast<double>(view.height);
}

template <typename T>
double PlaneAverage(const PixelView& view, std::int64_t plane) {
  if (view.width <= 0 || view.height <= 0) return 0.0;
  if (const WholePlane whole(view, plane); whole) {
    double average = 0.0;
    Require(kernels::Average(whole.Pixels<T>(), view.width, view.height, view.StrideElements(),
                             average));
    return average;
  }
  return SumOfRows<T>(view, plane, [&view](const T* row) {
    return kernels::RowScaledSum(row, view.width, PixelsOf(view));
  });
}

template <typename T>
double PlaneDeviation(const PixelView& view, std::int64_t plane, double mean) {
  if (view.width <= 0 || view.height <= 0) return 0.0;
  if (const WholePlane whole(view, plane); whole) {
    double deviation = 0.0;
    Require(kernels::Deviation(whole.Pixels<T>(), view.width, view.height, view.StrideElements(),
                               mean, deviation));
    return deviation;
  }
  const double meanSquare = SumOfRows<T>(view, plane, [&view](const T* row) {
    return kernels::RowScaledSquareSum(row, view.width, PixelsOf(view));
  });
  return std::sqrt(meanSquare - mean * mean);
}

template <typename T>
std::tuple<Extremes<T>, double> PlaneMinMaxAverage(const PixelView& view, std::int64_t plane) {
  if (const WholePlane whole(view, plane); whole) {
    Extremes<T> extremes;
    double average = 0.0;
    Require(kernels::MinMaxAverage(whole.Pixels<T>(), view.width, view.height,
                                   view.StrideElements(), extremes.min, extremes.max, average));
    return {extremes, average};
  }
  return {PlaneMinMax<T>(view, plane), PlaneAverage<T>(view, plane)};
}

// Starting values of "all planes": the finite limits of the type.
template <typename T>
Extremes<T> FiniteStart() {
  return {std::numeric_limits<T>::max(), std::numeric_limits<T>::lowest()};
}

}  // namespace

MinMaxResult MinMax(const PixelView& view, std::int64_t plane) {
  return DispatchElement(view.kind, [&]<typename T>(std::type_identity<T>) -> MinMaxResult {
    const bool one = plane >= 0 && view.width > 0 && view.height > 0;
    Extremes<T> all = one ? PlaneMinMax<T>(view, plane) : FiniteStart<T>();
    if (plane < 0) {
      for (std::int64_t p = 0; p < view.planes; ++p) all.Merge(PlaneMinMax<T>(view, p));
    }
    return {static_cast<double>(all.min), static_cast<double>(all.max)};
  });
}

MinMaxAverageResult MinMaxAverage(const PixelView& view, std::int64_t plane) {
  return DispatchElement(view.kind, [&]<typename T>(std::type_identity<T>) -> MinMaxAverageResult {
    Extremes<T> all = FiniteStart<T>();
    double average = 0.0;
    if (plane >= 0) {
      if (view.width > 0 && view.height > 0) {
        std::tie(all, average) = PlaneMinMaxAverage<T>(view, plane);
      }
    } else {
      for (std::int64_t p = 0; p < view.planes; ++p) {
        const auto [extremes, planeAverage] = PlaneMinMaxAverage<T>(view, p);
        all.Merge(extremes);
        average += planeAverage / static_cast<double>(view.planes);
      }
    }
    return {static_cast<double>(all.min), static_cast<double>(all.max), average};
  });
}

double Average(const PixelView& view, std::int64_t plane) {
  return DispatchElement(view.kind, [&]<typename T>(std::type_identity<T>) {
    if (plane >= 0) return PlaneAverage<T>(view, plane);
    double average = 0.0;
    for (std::int64_t p = 0; p < view.planes; ++p) {
      average += PlaneAverage<T>(view, p) / static_cast<double>(view.planes);
    }
    return average;
  });
}

double Deviation(const PixelView& view, std::int64_t plane, double mean) {
  return DispatchElement(view.kind, [&]<typename T>(std::type_identity<T>) {
    if (plane >= 0) return PlaneDeviation<T>(view, plane, mean);
    double deviation = 0.0;
    for (std::int64_t p = 0; p < view.planes; ++p) {
      deviation += PlaneDeviation<T>(view, p, mean) / static_cast<double>(view.planes);
    }
    return deviation;
  });
}

std::vector<std::int32_t> Histogram(const PixelView& view, std::int64_t plane, double fMin,
                                    double fMax, std::int32_t bins, bool inverse) {
  return DispatchElement(view.kind, [&]<typename T>(std::type_identity<T>) {
    std::vector<std::int32_t> total(static_cast<std::size_t>(bins));
    std::vector<std::int32_t> part(static_cast<std::size_t>(bins));
    const std::int64_t first = plane < 0 ? 0 : plane;
    const std::int64_t end = plane < 0 ? view.planes : plane + 1;
    for (std::int64_t p = first; p < end && view.width > 0; ++p) {
      for (std::int64_t y = 0; y < view.height;) {
        const RowBatch batch(*view.store, p, y, view.height - y, BlockIntent::Read, true);
        for (const RowBatch::Segment& segment : batch.Segments()) {
          Require(kernels::Histogram(reinterpret_cast<const T*>(segment.address), view.width,
                                     segment.lines, view.StrideElements(), fMin, fMax, bins,
                                     inverse, part.data()));
          // Counts wrap as unsigned numbers do.
          for (std::size_t bin = 0; bin < total.size(); ++bin) {
            total[bin] = static_cast<std::int32_t>(static_cast<std::uint32_t>(total[bin]) +
                                                   static_cast<std::uint32_t>(part[bin]));
          }
        }
        y += batch.RowCount();
      }
    }
    return total;
  });
}

}  // namespace korin::kernel_path
