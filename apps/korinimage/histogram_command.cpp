#include <fmt/format.h>

#include <CLI/Option.hpp>
#include <CLI/TypeTools.hpp>
#include <CLI/Validators.hpp>
#include <cmath>
#include <memory>
#include <numeric>

#include "commands.h"
#include "file_option.h"
#include "histogram_plot.h"
#include "json.h"
#include "platform/terminal.h"

namespace korin::app {

namespace {

struct HistogramOptions {
  std::filesystem::path file;
  std::filesystem::path png;
  int hdu = FitsOptions::kFirstImage;
  std::optional<int> plane;
  std::optional<int> bins;
  std::optional<double> min;
  std::optional<double> max;
  std::optional<double> percent;
  bool linear = false;
  bool json = false;
};

std::optional<Bounds> GivenBounds(const HistogramOptions& options, CImage& image, int plane) {
  if (options.percent) {
    const Bounds bounds = MeasurePercentile(image, plane, *options.percent);
    if (bounds.min < bounds.max) return bounds;
  }
  if (!options.min && !options.max) return std::nullopt;
  Bounds bounds = options.min && options.max ? Bounds{} : MeasureBounds(image, plane);
  if (options.min) bounds.min = *options.min;
  if (options.max) bounds.max = *options.max;
  if (!(bounds.min < bounds.max)) {
    throw UsageError(fmt::format("the range of values {} to {} is empty", bounds.min, bounds.max));
  }
  return bounds;
}

// What a histogram covers; without bounds the image's own range.
struct Coverage {
  int bins = 256;
  std::optional<Bounds> bounds;
};

// Bins of as many codes each, for a user who did not ask for a number: bins that take
// in now one code more, now one less, would draw a comb. Edges lie between the codes.
Coverage WholeCodes(const CImage& image, const Bounds& bounds) {
  Coverage result;
  const double code = std::abs(image.GetBscale());
  const double codes = std::round((bounds.max - bounds.min) / code) + 1.0;
  if (!std::isfinite(codes)) return {result.bins, bounds};
  const double each = std::ceil(codes / result.bins);
  result.bins = static_cast<int>(std::ceil(codes / each));
  const double start = bounds.min - 0.5 * code;
  result.bounds = Bounds{start, start + result.bins * each * code};
  return result;
}

// Three planes are counted apart over one range, so that they compare; of any other
// number the one asked for, or all together.
std::vector<PlaneHistogram> Measure(const HistogramOptions& options, CImage& image) {
  if (options.plane && *options.plane >= image.GetPlanes()) {
    throw UsageError(
        fmt::format("there is no plane {} among {}", *options.plane, image.GetPlanes()));
  }
  std::vector<int> planes = {options.plane.value_or(kAllPlanes)};
  std::optional<Bounds> bounds = GivenBounds(options, image, planes.front());
  if (!options.plane && image.GetPlanes() == 3) {
    planes = {0, 1, 2};
    if (!bounds) bounds = MeasureBounds(image, kAllPlanes);
  }
  Coverage coverage;
  if (options.bins) {
    coverage = {*options.bins, bounds};
  } else if (image.GetBitsPixel() > 0 && !options.min && !options.max) {
    coverage = WholeCodes(image, bounds ? *bounds : MeasureBounds(image, planes.front()));
  } else {
    coverage.bounds = bounds;
  }
  std::vector<PlaneHistogram> result;
  for (const int plane : planes) {
    result.push_back({plane, MeasureHistogram(image, plane, coverage.bins, coverage.bounds)});
  }
  return result;
}

void PrintJson(const HistogramOptions& options, const std::vector<PlaneHistogram>& histograms) {
  JsonWriter json;
  json.BeginObject();
  json.Field("file", options.file.string());
  json.Field("bins", static_cast<std::int64_t>(histograms.front().histogram.counts.size()));
  json.Key("histograms").BeginArray();
  for (const PlaneHistogram& plane : histograms) {
    json.BeginObject();
    json.Field("plane", plane.plane);
    json.Field("min", plane.histogram.bounds.min);
    json.Field("max", plane.histogram.bounds.max);
    json.Field("width", plane.histogram.width);
    json.Key("counts").BeginArray();
    for (const std::int64_t count : plane.histogram.counts) json.Value(count);
    json.EndArray().EndObject();
  }
  json.EndArray().EndObject();
  fmt::print("{}\n", json.Text());
}

void PrintText(const HistogramOptions& options, const std::vector<PlaneHistogram>& histograms) {
  const int columns = platform::TerminalColumns(platform::StandardStream::kOutput, 80);
  fmt::print("{}\n", options.file.string());
  for (const PlaneHistogram& plane : histograms) {
    if (plane.plane != kAllPlanes) fmt::print("plane {}\n", plane.plane);
    fmt::print("{}", PlotHistogram(plane.histogram, std::min(columns, 120), options.linear));
  }
}

}  // namespace

void AddHistogramCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<HistogramOptions>();
  CLI::App* command = app.add_subcommand("histogram", "How many pixels have which physical value");
  AddFileOption(*command, "file", options->file, "FITS file")->type_name("FILE")->required();
  AddHduOption(*command, options->hdu);
  command->add_option("--bins", options->bins, "Number of bins (default: up to 256)")
      ->type_name("N")
      ->check(CLI::Range(1, 1 << 24));
  command->add_option("--plane", options->plane, "One plane only, counted from 0")
      ->type_name("N")
      ->check(CLI::NonNegativeNumber);
  auto* min =
      command->add_option("--min", options->min, "Lowest value counted (default: the lowest one)")
          ->type_name("VALUE");
  auto* max =
      command
          ->add_option("--max", options->max, "Upper end of the range (default: the highest one)")
          ->type_name("VALUE");
  command
      ->add_option("--percentile", options->percent,
                   "Only the range that the middle PERCENT of the pixels lie in")
      ->type_name("PERCENT")
      ->check(CLI::Range(0.001, 100.0))
      ->excludes(min)
      ->excludes(max);
  command->add_flag("--linear", options->linear, "Linear bars instead of logarithmic ones");
  AddFileOption(*command, "--png", options->png, "Draw it into a PNG file as well")
      ->type_name("OUT.png");
  command->add_flag("--json", options->json, "Print JSON instead of a plot");
  command->callback([&session, options] {
    const auto image = session.Load(options->file, options->hdu);
    const auto histograms = Measure(*options, *image);
    if (!options->png.empty()) DrawHistograms(histograms, options->linear, options->png);
    if (options->json) {
      PrintJson(*options, histograms);
    } else {
      PrintText(*options, histograms);
    }
  });
}

}  // namespace korin::app
