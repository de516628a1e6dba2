#pragma once

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "korinimage/image.h"

// Figures of an image as its user means them: physical values with the scaling
// applied once, the same to the last bit whatever the layout of the blocks, the
// memory and the threads. The image's own statistics follow the manager's policy in
// what they measure; these functions fix that while they run and leave image and
// manager as they were. Each throws Interrupted between its steps when asked to.
namespace korin::app {

constexpr int kAllPlanes = -1;

struct PlaneStatistics {
  int plane = kAllPlanes;
  double min = 0.0;
  double max = 0.0;
  double average = 0.0;
  double stddev = 0.0;  // of the population
  double mode = 0.0;    // most frequent value of integers; middle of the fullest bin of reals
};

struct Bounds {
  double min = 0.0;
  double max = 0.0;
};

// All planes together first, then each one. `raw`: stored instead of physical
// values.
std::vector<PlaneStatistics> MeasureStatistics(CImage& image, bool raw);

// Physical extremes of a plane or of all planes.
Bounds MeasureBounds(CImage& image, int plane);

// Pixels by physical value: bin i holds [min + i x width, min + (i + 1) x width).
// The last one holds its upper end as well, except for reals over given bounds.
struct Histogram {
  Bounds bounds;
  double width = 0.0;
  std::vector<std::int64_t> counts;
};
// Without bounds the extremes of the plane serve. Throws std::runtime_error when
// there are no finite bounds.
Histogram MeasureHistogram(CImage& image, int plane, int bins, const std::optional<Bounds>& bounds);

// The values that the middle `percent` of the plane's pixels lie between, to one
// part in 10^7 of the plane's range or exactly for integers.
Bounds MeasurePercentile(CImage& image, int plane, double percent);

// Display levels: each plane's physical extremes.
void SetMeasuredLevels(CImage& image);

}  // namespace korin::app
