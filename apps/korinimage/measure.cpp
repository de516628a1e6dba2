#include "measure.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <tuple>

#include "interrupt.h"
#include "korinimage/exceptions.h"
#include "policy_scope.h"

namespace korin::app {

namespace {

using Policy = CVmManager::AllocationPolicy;

// Measures stored values: takes the scaling off and puts it back.
class StoredValuesScope {
 public:
  explicit StoredValuesScope(CImage& image)
      : m_image(image), m_bscale(image.GetBscale()), m_bzero(image.GetBzero()) {
    m_image.SetBscale(1.0);
    m_image.SetBzero(0.0);
  }
  StoredValuesScope(const StoredValuesScope&) = delete;
  StoredValuesScope& operator=(const StoredValuesScope&) = delete;
  ~StoredValuesScope() {
    m_image.SetBscale(m_bscale);
    m_image.SetBzero(m_bzero);
  }

 private:
  CImage& m_image;
  double m_bscale;
  double m_bzero;
};

constexpr double kExactBins = 1 << 20;  // integer ranges up to this have a bin for each value
constexpr int kModeBins = 256;
constexpr int kPercentileBins = 65536;

bool IsInteger(const CImage& image) { return image.GetBitsPixel() > 0; }

// Whether every integer between the two gets a bin of its own.
bool HasExactBins(const CImage& image, double min, double max) {
  return IsInteger(image) && max - min < kExactBins;
}

// Counts of stored values min, min + 1, ... max.
std::vector<std::int32_t> ExactHistogram(CImage& image, int plane, double min, double max) {
  const PolicyScope rows(image, Policy::Blocks);
  const StoredValuesScope stored(image);
  // The rows' bins are (max - min) / (bins - 1) wide: exactly 1 here.
  return image.HistogramRaw(plane, min, max, static_cast<int>(max - min) + 1);
}

double StoredMode(CImage& image, int plane, double min, double max) {
  if (!std::isfinite(max - min)) return std::numeric_limits<double>::quiet_NaN();
  if (HasExactBins(image, min, max)) {
    const std::vector<std::int32_t> counts = ExactHistogram(image, plane, min, max);
    return min +
           static_cast<double>(std::max_element(counts.begin(), counts.end()) - counts.begin());
  }
  const PolicyScope rows(image, Policy::Blocks);
  const StoredValuesScope stored(image);
  return std::get<2>(image.GetMinMaxMode(plane, kModeBins, kModeBins));
}

PlaneStatistics StoredStatistics(CImage& image, int plane) {
  PlaneStatistics result;
  result.plane = plane;
  {
    const PolicyScope kernels(image, Policy::Planes);
    const StoredValuesScope stored(image);
    std::tie(result.min, result.max, result.average) = image.GetMinMaxAvrRaw(plane);
    CheckInterrupt();
    result.stddev = image.GetStdDevRaw(plane, result.average);
  }
  // The mean square less the square of the mean: rounding may leave a trifle of
  // either sign where all pixels are equal.
  if (result.min == result.max || (std::isnan(result.stddev) && std::isfinite(result.average))) {
    result.stddev = 0.0;
  }
  CheckInterrupt();
  result.mode = StoredMode(image, plane, result.min, result.max);
  CheckInterrupt();
  return result;
}

// All planes as one population, from the figures of each; they are of equal size.
PlaneStatistics Together(CImage& image, const std::vector<PlaneStatistics>& planes) {
  if (planes.size() == 1) {
    PlaneStatistics result = planes.front();
    result.plane = kAllPlanes;
    return result;
  }
  const auto count = static_cast<double>(planes.size());
  PlaneStatistics result;
  result.min = std::numeric_limits<double>::infinity();
  result.max = -result.min;
  for (const PlaneStatistics& plane : planes) {
    result.min = std::min(result.min, plane.min);
    result.max = std::max(result.max, plane.max);
    result.average += plane.average / count;
  }
  double variance = 0.0;
  for (const PlaneStatistics& plane : planes) {
    const double offset = plane.average - result.average;
    variance += (plane.stddev * plane.stddev + offset * offset) / count;
  }
  result.stddev = std::sqrt(variance);
  result.mode = StoredMode(image, kAllPlanes, result.min, result.max);
  return result;
}

PlaneStatistics Physical(const CImage& image, PlaneStatistics stored) {
  stored.min = image.ApplyBaseScaleOffset(stored.min);
  stored.max = image.ApplyBaseScaleOffset(stored.max);
  if (stored.min > stored.max) std::swap(stored.min, stored.max);
  stored.average = image.ApplyBaseScaleOffset(stored.average);
  stored.stddev = std::abs(image.GetBscale()) * stored.stddev;
  stored.mode = image.ApplyBaseScaleOffset(stored.mode);
  return stored;
}

Bounds StoredBounds(CImage& image, int plane) {
  const PolicyScope kernels(image, Policy::Planes);
  const StoredValuesScope stored(image);
  const auto [min, max] = image.GetMinMaxRaw(plane);
  return {min, max};
}

// Sorts counts of the stored values first, first + 1, ... into bins of physical ones.
void SortExactly(const CImage& image, const std::vector<std::int32_t>& counts, double first,
                 Histogram& result) {
  const auto bins = static_cast<double>(result.counts.size());
  for (std::size_t i = 0; i < counts.size(); ++i) {
    const double value = image.ApplyBaseScaleOffset(first + static_cast<double>(i));
    if (!(value >= result.bounds.min && value <= result.bounds.max)) continue;
    const double bin =
        result.width > 0.0 ? std::floor((value - result.bounds.min) / result.width) : 0.0;
    result.counts[static_cast<std::size_t>(std::min(bin, bins - 1.0))] += counts[i];
  }
}

// Stored value below which `share` of the counted pixels lie, by two rounds of
// counting: over the whole range, then within the bin that holds the place.
double StoredQuantile(CImage& image, int plane, const Bounds& range,
                      const std::vector<std::int32_t>& coarse, double share) {
  const std::int64_t total = std::accumulate(coarse.begin(), coarse.end(), std::int64_t{0});
  const double target = share * static_cast<double>(total);
  std::int64_t below = 0;
  std::size_t bin = 0;
  while (bin + 1 < coarse.size() && static_cast<double>(below + coarse[bin]) < target) {
    below += coarse[bin++];
  }
  const double width = (range.max - range.min) / static_cast<double>(coarse.size() - 1);
  const double start = range.min + static_cast<double>(bin) * width;
  if (width <= 0.0 || HasExactBins(image, range.min, range.max)) return start;

  // The row counting also puts what lies less than one bin below the range into the
  // first bin: one bin more in front takes that up.
  constexpr int kFineBins = 1024;
  const double fineWidth = width / kFineBins;
  std::vector<std::int32_t> fine;
  {
    const PolicyScope rows(image, Policy::Blocks);
    const StoredValuesScope stored(image);
    fine = image.HistogramRaw(plane, start - fineWidth, start + width, kFineBins + 2);
  }
  for (int i = 1; i <= kFineBins; ++i) {
    below += fine[static_cast<std::size_t>(i)];
    if (static_cast<double>(below) >= target) return start + fineWidth * (i - 0.5);
  }
  return start + width;
}

}  // namespace

std::vector<PlaneStatistics> MeasureStatistics(CImage& image, bool raw) {
  std::vector<PlaneStatistics> planes;
  for (int plane = 0; plane < image.GetPlanes(); ++plane) {
    planes.push_back(StoredStatistics(image, plane));
  }
  planes.insert(planes.begin(), Together(image, planes));
  if (!raw) {
    for (PlaneStatistics& plane : planes) plane = Physical(image, plane);
  }
  return planes;
}

Bounds MeasureBounds(CImage& image, int plane) {
  const Bounds stored = StoredBounds(image, plane);
  const double a = image.ApplyBaseScaleOffset(stored.min);
  const double b = image.ApplyBaseScaleOffset(stored.max);
  return {std::min(a, b), std::max(a, b)};
}

Histogram MeasureHistogram(CImage& image, int plane, int bins,
                           const std::optional<Bounds>& bounds) {
  Histogram result;
  result.bounds = bounds ? *bounds : MeasureBounds(image, plane);
  const double span = result.bounds.max - result.bounds.min;
  if (!std::isfinite(span)) {
    throw std::runtime_error("the pixels have no finite range; give one with --min and --max");
  }
  result.width = span / bins;
  result.counts.assign(static_cast<std::size_t>(bins), 0);
  CheckInterrupt();
  const Bounds stored = StoredBounds(image, plane);
  CheckInterrupt();
  if (HasExactBins(image, stored.min, stored.max)) {
    SortExactly(image, ExactHistogram(image, plane, stored.min, stored.max), stored.min, result);
    return result;
  }
  const PolicyScope rows(image, Policy::Blocks);
  // The row counting divides the range by bins - 1, keeps a bin for the upper end
  // alone and puts what lies less than one bin below the range into the first bin.
  // Over measured bounds one bin more takes the upper end, which belongs to the
  // last; over bounds of the user's own one bin more on either side takes the rest.
  const bool open = bounds.has_value();
  const std::vector<std::int32_t> counts =
      open ? image.Histogram(plane, result.bounds.min - result.width,
                             result.bounds.max + result.width, bins + 3)
           : image.Histogram(plane, result.bounds.min, result.bounds.max, bins + 1);
  for (std::size_t i = 0; i < result.counts.size(); ++i) {
    result.counts[i] = counts[i + (open ? 1 : 0)];
  }
  if (!open) result.counts.back() += counts.back();
  return result;
}

Bounds MeasurePercentile(CImage& image, int plane, double percent) {
  const Bounds range = StoredBounds(image, plane);
  if (!std::isfinite(range.max - range.min)) {
    throw std::runtime_error("the pixels have no finite range; give levels with --min and --max");
  }
  CheckInterrupt();
  std::vector<std::int32_t> counts;
  if (HasExactBins(image, range.min, range.max)) {
    counts = ExactHistogram(image, plane, range.min, range.max);
  } else {
    const PolicyScope rows(image, Policy::Blocks);
    const StoredValuesScope stored(image);
    counts = image.HistogramRaw(plane, range.min, range.max, kPercentileBins);
  }
  CheckInterrupt();
  const double tail = (1.0 - percent / 100.0) / 2.0;
  const double a = image.ApplyBaseScaleOffset(StoredQuantile(image, plane, range, counts, tail));
  CheckInterrupt();
  const double b =
      image.ApplyBaseScaleOffset(StoredQuantile(image, plane, range, counts, 1.0 - tail));
  return {std::min(a, b), std::max(a, b)};
}

void SetMeasuredLevels(CImage& image) {
  image.AllocLevel();
  for (int plane = 0; plane < image.GetPlanes(); ++plane) {
    const Bounds bounds = MeasureBounds(image, plane);
    image.SetLevel(plane, bounds.min, bounds.max);
    CheckInterrupt();
  }
}

}  // namespace korin::app
