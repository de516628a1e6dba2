// Statistics of an image and single pixels: the choice of path, the mapping
// between stored and physical values, the two-level mode.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "image/image_pixels.h"
#include "image/kernel_statistics.h"
#include "image/row_statistics.h"
#include "kernels/kernel_calls.h"
#include "korinimage/exceptions.h"
#include "korinimage/image.h"

namespace {

using korin::PixelView;

// What a statistic runs on: which path, and the pixels unless the type is unknown.
struct Subject {
  bool kernelPath = false;
  std::optional<PixelView> view;
};

Subject SubjectOf(const CImage& image) {
  const auto manager = korin::RequireManager(image);
  Subject subject;
  subject.kernelPath = manager->GetAllocationPolicy() != CVmManager::AllocationPolicy::Blocks;
  if (const auto kind = korin::ElementKindOf(image)) {
    subject.view = korin::RequirePixels(image, *kind);
  }
  return subject;
}

std::pair<double, double> Ordered(double a, double b) {
  return b < a ? std::pair(b, a) : std::pair(a, b);
}

// Refuses bins that no kernel can count, before memory is taken for them. The rows
// could, but an answer must not depend on the policy.
void RequireCountable(std::int64_t bins) {
  if (bins <= korin::kernels::kMostBins) return;
  throw korin::CKorinImageBadAllocException(
      "a histogram of " + std::to_string(bins) + " bins has more than " +
      std::to_string(korin::kernels::kMostBins) + " bins: ask for fewer");
}

std::vector<std::int32_t> EmptyHistogram(int bins) {
  return std::vector<std::int32_t>(static_cast<std::size_t>(std::max(bins, 0)));
}

// The row path divides by bins - 1, so that the maximum itself falls into the last bin.
std::vector<std::int32_t> RowHistogram(const PixelView& view, int plane, double min, double max,
                                       int bins) {
  RequireCountable(bins);
  const double width = (max - min) / static_cast<double>(std::max(bins - 1, 1));
  return korin::row_path::Histogram(view, plane, min, width, bins);
}

// Index of the largest count in [first, end); the first one on ties.
std::int64_t FullestBin(const std::vector<std::int32_t>& histogram, std::int64_t first,
                        std::int64_t end) {
  const auto from = histogram.begin() + static_cast<std::ptrdiff_t>(first);
  const auto to = histogram.begin() + static_cast<std::ptrdiff_t>(end);
  return first + std::distance(from, std::max_element(from, to));
}

template <typename T>
T ReadElement(const BYTE* address) {
  T value;
  std::memcpy(&value, address, sizeof value);
  return value;
}

}  // namespace

std::tuple<double, double> CImage::GetMinMaxRaw(int plane) const {
  const auto [kernelPath, view] = SubjectOf(*this);
  if (!view) return {0.0, 0.0};
  return kernelPath ? korin::kernel_path::MinMax(*view, plane)
                    : korin::row_path::MinMax(*view, plane);
}

std::tuple<double, double> CImage::GetMinMax(int plane) const {
  const auto [min, max] = GetMinMaxRaw(plane);
  const auto [low, high] = Ordered(ApplyBaseScaleOffset(min), ApplyBaseScaleOffset(max));
  return {low, high};
}

void CImage::GetMinMax(int plane, double* min, double* max) const {
  const auto [low, high] = GetMinMax(plane);
  if (min != nullptr) *min = low;
  if (max != nullptr) *max = high;
}

std::tuple<double, double, double> CImage::GetMinMaxAvrRaw(int plane) const {
  const auto [kernelPath, view] = SubjectOf(*this);
  if (!view) {
    if (kernelPath) return {0.0, 0.0, 0.0};
    constexpr double kLargest = std::numeric_limits<double>::max();
    return {kLargest, -kLargest, 0.0};
  }
  return kernelPath ? korin::kernel_path::MinMaxAverage(*view, plane)
                    : korin::row_path::MinMaxAverage(*view, plane);
}

std::tuple<double, double, double> CImage::GetMinMaxAvr(int plane) const {
  const auto [min, max, average] = GetMinMaxAvrRaw(plane);
  const auto [low, high] = Ordered(ApplyBaseScaleOffset(min), ApplyBaseScaleOffset(max));
  return {low, high, ApplyBaseScaleOffset(average)};
}

void CImage::GetMinMaxAvr(int plane, double* min, double* max, double* average) const {
  const auto [low, high, mean] = GetMinMaxAvr(plane);
  if (min != nullptr) *min = low;
  if (max != nullptr) *max = high;
  if (average != nullptr) *average = mean;
}

std::tuple<double, double, double> CImage::GetMinMaxMode(int plane, int bins,
                                                         int subdivision) const {
  const auto [kernelPath, view] = SubjectOf(*this);
  if (!view) return {0.0, 0.0, 0.0};
  const auto [min, max] = GetMinMaxRaw(plane);
  if (bins < 1 || subdivision < 1) return {min, max, min};
  const std::int64_t fineBins = std::int64_t{bins} * subdivision;
  RequireCountable(fineBins);
  // No local structured binding is captured here: clang 14 refuses it.
  const PixelView& pixels = *view;
  const double low = min;
  const double high = max;
  const bool byKernels = kernelPath;
  const auto count = [&](std::int64_t n) {
    const auto binCount = static_cast<std::int32_t>(n);
    return byKernels ? korin::kernel_path::Histogram(pixels, plane, low, high, binCount, false)
                     : korin::row_path::Histogram(pixels, plane, low,
                                                  (high - low) / static_cast<double>(n), binCount);
  };
  std::int64_t coarse = 0;
  if (bins > 1) coarse = FullestBin(count(bins), 0, bins);
  const double width = (max - min) / static_cast<double>(fineBins);
  const std::int64_t fine = FullestBin(count(fineBins), coarse * subdivision,
                                       std::min((coarse + 1) * subdivision, fineBins));
  return {min, max, (static_cast<double>(fine) + 0.5) * width + min};
}

void CImage::GetMinMaxMode(int plane, double* min, double* max, double* mode, int bins,
                           int subdivision) const {
  const auto [low, high, fullest] = GetMinMaxMode(plane, bins, subdivision);
  if (min != nullptr) *min = low;
  if (max != nullptr) *max = high;
  if (mode != nullptr) *mode = fullest;
}

double CImage::GetAverageRaw(int plane) const {
  const auto [kernelPath, view] = SubjectOf(*this);
  if (!view) return 0.0;
  return kernelPath ? korin::kernel_path::Average(*view, plane)
                    : korin::row_path::Average(*view, plane);
}

double CImage::GetAverage(int plane) const { return ApplyBaseScaleOffset(GetAverageRaw(plane)); }

double CImage::GetStdDevRaw(int plane) const { return GetStdDevRaw(plane, GetAverageRaw(plane)); }

double CImage::GetStdDevRaw(int plane, double mean) const {
  const auto [kernelPath, view] = SubjectOf(*this);
  if (!view) return 0.0;
  return kernelPath ? korin::kernel_path::Deviation(*view, plane, mean)
                    : korin::row_path::Deviation(*view, plane, mean);
}

double CImage::GetStdDev(int plane) const { return GetStdDev(plane, GetAverage(plane)); }

double CImage::GetStdDev(int plane, double mean) const {
  return std::abs(m_bscale) * GetStdDevRaw(plane, UnapplyBaseScaleOffset(mean));
}

std::vector<std::int32_t> CImage::HistogramRaw(int plane, int bins) const {
  const auto [kernelPath, view] = SubjectOf(*this);
  if (bins <= 0 || !view) return EmptyHistogram(bins);
  const auto [min, max] = GetMinMaxRaw(plane);
  if (kernelPath) return HistogramRaw(plane, min, max, bins);
  // Under the row path these extremes are physical already: scaling them as a
  // caller's stored bounds would enclose none of the pixels.
  return RowHistogram(*view, plane, min, max, bins);
}

std::vector<std::int32_t> CImage::HistogramRaw(int plane, double min, double max, int bins) const {
  const auto [kernelPath, view] = SubjectOf(*this);
  if (bins <= 0 || !view) return EmptyHistogram(bins);
  if (kernelPath) {
    RequireCountable(bins);
    return korin::kernel_path::Histogram(*view, plane, min, max, bins, m_bscale < 0.0);
  }
  const auto [low, high] = Ordered(ApplyBaseScaleOffset(min), ApplyBaseScaleOffset(max));
  return RowHistogram(*view, plane, low, high, bins);
}

std::vector<std::int32_t> CImage::Histogram(int plane, int bins) const {
  const auto [kernelPath, view] = SubjectOf(*this);
  if (bins <= 0 || !view) return EmptyHistogram(bins);
  if (kernelPath) {
    const auto [min, max] = GetMinMax(plane);
    return Histogram(plane, min, max, bins);
  }
  // Bounds that enclose the pixels are the extremes of the values scaled once.
  const auto [min, max] = GetMinMaxRaw(plane);
  return RowHistogram(*view, plane, min, max, bins);
}

std::vector<std::int32_t> CImage::Histogram(int plane, double min, double max, int bins) const {
  const auto [kernelPath, view] = SubjectOf(*this);
  if (bins <= 0 || !view) return EmptyHistogram(bins);
  if (kernelPath) {
    const auto [low, high] = Ordered(UnapplyBaseScaleOffset(min), UnapplyBaseScaleOffset(max));
    return HistogramRaw(plane, low, high, bins);
  }
  return RowHistogram(*view, plane, min, max, bins);
}

double CImage::GetPixel(int x, int y, int plane) const {
  (void)korin::RequireManager(*this);
  const auto kind = korin::ElementKindOf(*this);
  if (!kind) return ApplyBaseScaleOffset(0.0);
  const PixelView view = korin::RequirePixels(*this, *kind);
  // The block is held while the pixel is read; its address is asked for as a
  // writer's would be.
  const korin::RowBatch row(*view.store, plane, y, 1, korin::BlockIntent::Read, true);
  if (x < 0 || x >= view.store->GetWidth()) {
    throw korin::CVmMemoryAllocationError("pixel column " + std::to_string(x) +
                                          " is outside the image store of width " +
                                          std::to_string(view.store->GetWidth()));
  }
  return GetPixel(row.Row(y) + std::int64_t{x} * view.store->GetBytesPixel());
}

double CImage::GetPixel(const BYTE* address) const {
  switch (m_BitsPixel) {
    case DataTypeInt8:
      return ApplyBaseScaleOffset(*address);
    case DataTypeInt16:
      // Unsigned whatever the flag says: callers rely on the stored 16-bit code.
      return ApplyBaseScaleOffset(ReadElement<std::uint16_t>(address));
    case DataTypeInt32:
      return ApplyBaseScaleOffset(m_signed
                                      ? static_cast<double>(ReadElement<std::int32_t>(address))
                                      : static_cast<double>(ReadElement<std::uint32_t>(address)));
    case DataTypeFloat:
      return ApplyBaseScaleOffset(ReadElement<float>(address));
    case DataTypeDouble:
      return ApplyBaseScaleOffset(ReadElement<double>(address));
    default:
      return ApplyBaseScaleOffset(0.0);
  }
}
