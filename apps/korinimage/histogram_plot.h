#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "measure.h"

namespace korin::app {

struct PlaneHistogram {
  int plane = kAllPlanes;
  Histogram histogram;
};

// A histogram as lines of text: a range of values and a bar on each, at most
// `columns` wide. Bars are logarithmic unless `linear`.
std::string PlotHistogram(const Histogram& histogram, int columns, bool linear);

// Draws histograms into a PNG file, one curve for each; three are red, green and
// blue. Throws FileError.
void DrawHistograms(const std::vector<PlaneHistogram>& histograms, bool linear,
                    const std::filesystem::path& file);

// Height of a bar between 0 and 1: the share of the largest count.
double BarHeight(std::int64_t count, std::int64_t largest, bool linear);

}  // namespace korin::app
