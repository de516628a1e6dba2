#include "histogram_plot.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace korin::app {

namespace {

constexpr std::size_t kLines = 32;

}  // namespace

double BarHeight(std::int64_t count, std::int64_t largest, bool linear) {
  if (count <= 0 || largest <= 0) return 0.0;
  if (linear) return static_cast<double>(count) / static_cast<double>(largest);
  // A single pixel must show: log of count + 1.
  return std::log1p(static_cast<double>(count)) / std::log1p(static_cast<double>(largest));
}

std::string PlotHistogram(const Histogram& histogram, int columns, bool linear) {
  const std::size_t bins = histogram.counts.size();
  const std::size_t group = (bins + kLines - 1) / kLines;
  std::vector<std::int64_t> lines;
  for (std::size_t i = 0; i < bins; ++i) {
    if (i % group == 0) lines.push_back(0);
    lines.back() += histogram.counts[i];
  }
  const std::int64_t largest = *std::max_element(lines.begin(), lines.end());
  const int room = std::max(10, columns - 14 - 13);
  std::string text;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const double start = histogram.bounds.min + static_cast<double>(i * group) * histogram.width;
    const auto length =
        static_cast<std::size_t>(std::ceil(BarHeight(lines[i], largest, linear) * room));
    text += fmt::format("{:>13.7g} |{:<{}} {}\n", start, std::string(length, '#'), room, lines[i]);
  }
  text += fmt::format("{:>13.7g} +  ({} bins, {} bars)\n", histogram.bounds.max, bins,
                      linear ? "linear" : "logarithmic");
  return text;
}

}  // namespace korin::app
