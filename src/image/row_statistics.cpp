#include "image/row_statistics.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <mutex>

#include "kernels/kernel_calls.h"
#include "kernels/row_sums.h"
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

template <typename T>
Extremes RowExtremes(const T* row, std::int64_t width, double bscale, double bzero) {
  // Rounding is monotonic, so a finite scaling other than 0 keeps the order of the
  // pixels (or turns it round): the extremes of the stored values are enough.
  Extremes extremes;
  if (std::isfinite(bscale) && std::isfinite(bzero) && bscale != 0.0) {
    T min{};
    T max{};
    if (!kernels::MinMax(row, width, 1, width, min, max)) {
      throw CKorinImageBadAllocException("a pixel kernel failed");
    }
    // A row of NaN only answers (+inf, -inf).
    if (min <= max) {
      extremes.Take(static_cast<double>(min) * bscale + bzero);
      extremes.Take(static_cast<double>(max) * bscale + bzero);
    }
    return extremes;
  }
  for (std::int64_t x = 0; x < width; ++x) {
    extremes.Take(static_cast<double>(row[x]) * bscale + bzero);
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
  std::vector<PlaneSums> parts(rows);
  // One visit of a row serves all that is wanted, while it is in the cache.
  ForEachRow<T>(view, plane, [&](const T* row, std::int64_t y) {
    PlaneSums& part = parts[static_cast<std::size_t>(y)];
    if (wanted.extremes) part.extremes = RowExtremes(row, view.width, view.bscale, view.bzero);
    if (wanted.sum) part.sum = kernels::RowPhysicalSum(row, view.width, view.bscale, view.bzero);
    if (wanted.squares) {
      part.squares = kernels::RowPhysicalSquareSum(row, view.width, view.bscale, view.bzero);
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

// Where a stored value is counted; -1: nowhere.
struct BinRule {
  double bscale;
  double bzero;
  double min;
  double width;
  std::int32_t bins;

  std::int32_t BinOf(double stored) const {
    const double value = stored * bscale + bzero;
    if (width == 0.0) return value == min ? 0 : -1;
    const double q = (value - min) / width;
    // Compared as a double before it is converted; NaN fails.
    return q > -1.0 && q < static_cast<double>(bins) ? static_cast<std::int32_t>(q) : -1;
  }
};

// Adds to counts[indexOf(pixel)] for every pixel of a plane whose index is not
// negative. Each group of rows counts into a table of its own.
template <typename T, typename IndexOf>
void CountPlane(const PixelView& view, std::int64_t plane, IndexOf&& indexOf,
                std::vector<std::uint32_t>& counts) {
  // Neighbouring pixels often are alike: with few bins they take turns among
  // copies of the table, so that an increment need not wait for the one before.
  const std::size_t copies = counts.size() <= 8192 ? 4 : 1;
  for (std::int64_t y = 0; y < view.height;) {
    const RowBatch batch(*view.store, plane, y, view.height - y, BlockIntent::Read, true);
    std::mutex merging;
    // Few groups, so that private tables stay few however many bins there are.
    const std::int64_t groups = std::clamp<std::int64_t>(
        batch.RowCount() * view.width / (4 * static_cast<std::int64_t>(counts.size()) + 65536), 1,
        std::min<std::int64_t>(batch.RowCount(), 16));
    ParallelFor(groups, [&](std::int64_t group) {
      std::vector<std::uint32_t> mine(counts.size() * copies);
      const std::int64_t first = y + batch.RowCount() * group / groups;
      const std::int64_t end = y + batch.RowCount() * (group + 1) / groups;
      for (std::int64_t row = first; row < end; ++row) {
        const T* pixels = reinterpret_cast<const T*>(batch.Row(row));
        for (std::int64_t x = 0; x < view.width; ++x) {
          const std::int32_t index = indexOf(pixels[x]);
          if (index >= 0) {
            ++mine[static_cast<std::size_t>(index) * copies +
                   (static_cast<std::size_t>(x) & (copies - 1))];
          }
        }
      }
      const std::lock_guard lock(merging);
      for (std::size_t i = 0; i < mine.size(); ++i) counts[i / copies] += mine[i];
    });
    y += batch.RowCount();
  }
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
  const BinRule rule{view.bscale, view.bzero, min, binWidth, bins};
  std::vector<std::uint32_t> counts(static_cast<std::size_t>(bins));
  DispatchElement(view.kind, [&]<typename T>(std::type_identity<T>) {
    const auto [first, end] = PlanesOf(view, plane);
    for (std::int64_t p = first; p < end && view.width > 0; ++p) {
      if constexpr (sizeof(T) <= 2) {
        // Stored values are counted first; each value's count then goes through the
        // bin rule once.
        constexpr std::int32_t kLowest = std::numeric_limits<T>::lowest();
        std::vector<std::uint32_t> values(std::size_t{1} << (8 * sizeof(T)));
        CountPlane<T>(
            view, p, [](T value) { return std::int32_t{value} - kLowest; }, values);
        for (std::size_t i = 0; i < values.size(); ++i) {
          const std::int32_t bin = rule.BinOf(static_cast<double>(i) + kLowest);
          if (bin >= 0) counts[static_cast<std::size_t>(bin)] += values[i];
        }
      } else {
        CountPlane<T>(
            view, p, [&rule](T value) { return rule.BinOf(static_cast<double>(value)); }, counts);
      }
    }
  });
  std::vector<std::int32_t> histogram(counts.size());
  std::transform(counts.begin(), counts.end(), histogram.begin(),
                 [](std::uint32_t count) { return static_cast<std::int32_t>(count); });
  return histogram;
}

}  // namespace korin::row_path
