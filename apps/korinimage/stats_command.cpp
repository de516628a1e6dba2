#include <fmt/format.h>

#include <CLI/Option.hpp>
#include <CLI/TypeTools.hpp>
#include <memory>
#include <string>

#include "commands.h"
#include "file_option.h"
#include "json.h"
#include "measure.h"

namespace korin::app {

namespace {

struct StatsOptions {
  std::filesystem::path file;
  int hdu = FitsOptions::kFirstImage;
  bool raw = false;
  bool json = false;
};

void PrintJson(const StatsOptions& options, const CImage& image,
               const std::vector<PlaneStatistics>& statistics) {
  JsonWriter json;
  json.BeginObject();
  json.Field("file", options.file.string());
  json.Field("width", image.GetWidth());
  json.Field("height", image.GetHeight());
  json.Field("planes", image.GetPlanes());
  json.Field("bits", static_cast<int>(image.GetBitsPixel()));
  json.Field("signed", image.IsSigned());
  json.Field("bscale", image.GetBscale());
  json.Field("bzero", image.GetBzero());
  json.Key("statistics").BeginArray();
  for (const PlaneStatistics& plane : statistics) {
    json.BeginObject();
    json.Field("plane", plane.plane);
    json.Field("min", plane.min);
    json.Field("max", plane.max);
    json.Field("average", plane.average);
    json.Field("stddev", plane.stddev);
    json.Field("mode", plane.mode);
    json.EndObject();
  }
  json.EndArray().EndObject();
  fmt::print("{}\n", json.Text());
}

void PrintText(const StatsOptions& options, const std::vector<PlaneStatistics>& statistics) {
  fmt::print("{}: {} values\n", options.file.string(), options.raw ? "stored" : "physical");
  fmt::print("{:>6} {:>14} {:>14} {:>16} {:>16} {:>14}\n", "plane", "min", "max", "average",
             "stddev", "mode");
  for (const PlaneStatistics& plane : statistics) {
    if (plane.plane == kAllPlanes && statistics.size() == 2) continue;  // says it twice
    const std::string name = plane.plane == kAllPlanes ? "all" : std::to_string(plane.plane);
    fmt::print("{:>6} {:>14.8g} {:>14.8g} {:>16.10g} {:>16.10g} {:>14.8g}\n", name, plane.min,
               plane.max, plane.average, plane.stddev, plane.mode);
  }
}

}  // namespace

void AddStatsCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<StatsOptions>();
  CLI::App* command = app.add_subcommand(
      "stats", "Minimum, maximum, average, deviation and mode, of all planes and of each");
  AddFileOption(*command, "file", options->file, "FITS file")->type_name("FILE")->required();
  AddHduOption(*command, options->hdu);
  command->add_flag("--raw", options->raw, "Stored values, without BSCALE and BZERO");
  command->add_flag("--json", options->json, "Print JSON; plane -1 is all planes together");
  command->callback([&session, options] {
    const auto image = session.Load(options->file, options->hdu);
    const auto statistics = MeasureStatistics(*image, options->raw);
    if (options->json) {
      PrintJson(*options, *image, statistics);
    } else {
      PrintText(*options, statistics);
    }
  });
}

}  // namespace korin::app
