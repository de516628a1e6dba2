#include <fmt/format.h>

#include <CLI/Option.hpp>
#include <CLI/TypeTools.hpp>
#include <memory>
#include <optional>
#include <string>

#include "commands.h"
#include "file_option.h"
#include "json.h"
#include "observation.h"

namespace korin::app {

namespace {

struct InfoOptions {
  std::filesystem::path file;
  int hdu = FitsOptions::kFirstImage;
  bool json = false;
};

std::string TypeName(const FitsDescription& image) {
  switch (image.type) {
    case CImage::DataTypeInt8:
      return "8-bit unsigned integer";
    case CImage::DataTypeInt16:
      return image.isSigned ? "16-bit signed integer" : "16-bit unsigned integer";
    case CImage::DataTypeInt32:
      return image.isSigned ? "32-bit signed integer" : "32-bit unsigned integer";
    case CImage::DataTypeFloat:
      return "32-bit floating point";
    default:
      return "64-bit floating point";
  }
}

void PrintJson(const InfoOptions& options, const FitsDescription& image) {
  JsonWriter json;
  json.BeginObject();
  json.Field("file", options.file.string());
  json.Field("hdu", image.hdu);
  json.Field("compressed", image.tileCompressed);
  json.Field("width", image.width);
  json.Field("height", image.height);
  json.Field("planes", image.planes);
  json.Field("bits", static_cast<int>(image.type));
  json.Field("signed", image.isSigned);
  json.Field("bscale", image.bscale);
  json.Field("bzero", image.bzero);
  json.Field("cards", image.header.GetCount());
  json.Key("observation").BeginObject();
  for (const auto& [name, text] : Observation(image.header)) json.Field(name, text);
  json.EndObject().EndObject();
  fmt::print("{}\n", json.Text());
}

void PrintText(const InfoOptions& options, const FitsDescription& image) {
  const double bytes = static_cast<double>(image.BytesPerLine() * image.height * image.planes);
  fmt::print("{}\n", options.file.string());
  fmt::print("  unit         {}{}\n", image.hdu == 0 ? "primary" : std::to_string(image.hdu),
             image.tileCompressed ? ", tile-compressed" : "");
  fmt::print("  size         {} x {} pixels, {} plane{}, {:.2f} MiB\n", image.width, image.height,
             image.planes, image.planes == 1 ? "" : "s", bytes / 1048576.0);
  fmt::print("  pixels       {}\n", TypeName(image));
  fmt::print("  scaling      physical = stored x {} + {}\n", image.bscale, image.bzero);
  fmt::print("  header       {} cards\n", image.header.GetCount());
  for (const auto& [name, text] : Observation(image.header)) {
    fmt::print("  {:<12} {}\n", name, text);
  }
}

}  // namespace

void AddInfoCommand(CLI::App& app, Session&) {
  auto options = std::make_shared<InfoOptions>();
  CLI::App* command =
      app.add_subcommand("info", "What a file holds: size, pixel type, scaling, observation");
  AddFileOption(*command, "file", options->file, "FITS file")->type_name("FILE")->required();
  AddHduOption(*command, options->hdu);
  command->add_flag("--json", options->json, "Print JSON");
  command->callback([options] {
    FitsOptions unit;
    unit.hdu = options->hdu;
    const FitsDescription image = DescribeFits(options->file, unit);
    if (options->json) {
      PrintJson(*options, image);
    } else {
      PrintText(*options, image);
    }
    WarnOfReversedTimes(image.header);
  });
}

}  // namespace korin::app
