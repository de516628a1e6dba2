#include <fmt/format.h>

#include <CLI/Option.hpp>
#include <CLI/TypeTools.hpp>
#include <CLI/Validators.hpp>
#include <memory>
#include <optional>

#include "commands.h"
#include "conversion.h"
#include "file_option.h"
#include "korinimage/io/png_file.h"
#include "level_options.h"
#include "measure.h"

namespace korin::app {

namespace {

struct PreviewOptions {
  std::filesystem::path file;
  std::filesystem::path output;
  int hdu = FitsOptions::kFirstImage;
  std::optional<int> plane;
  int bits = 8;
  bool noFlip = false;
  LevelOptions levels{CImage::ChangeBitsLevel::Cooked, false};
};

void Preview(const PreviewOptions& options, Session& session) {
  const auto image = session.Load(options.file, options.hdu);
  if (options.plane && *options.plane >= image->GetPlanes()) {
    throw UsageError(
        fmt::format("there is no plane {} among {}", *options.plane, image->GetPlanes()));
  }
  PngOptions png;
  png.bits = options.bits;
  png.flip = !options.noFlip;
  if (options.plane) {
    png.plane = *options.plane;
  } else if (image->GetPlanes() != 3) {
    png.plane = 0;  // neither grey nor colour as a whole: the first plane stands for it
  }
  options.levels.Apply(*image);

  const auto type = options.bits == 16 ? CImage::DataTypeInt16 : CImage::DataTypeInt8;
  if (image->GetBitsPixel() != type || (type == CImage::DataTypeInt16 && image->IsSigned())) {
    ConvertPixels(*image, type, false, options.levels.Mode(), session);
    // The converted codes are what is shown, whatever they stand for.
    image->SetBscale(1.0);
    image->SetBzero(0.0);
    png.levels.assign(static_cast<std::size_t>(image->GetPlanes()),
                      {0.0, options.bits == 16 ? 65535.0 : 255.0});
  } else if (options.levels.Mode() == CImage::ChangeBitsLevel::Raw) {
    const double top = options.bits == 16 ? 65535.0 : 255.0;
    png.levels.assign(static_cast<std::size_t>(image->GetPlanes()),
                      {image->ApplyBaseScaleOffset(0.0), image->ApplyBaseScaleOffset(top)});
  }  // else the pixels have the type already and are drawn by the display levels
  SavePng(*image, options.output, png, session.MakeProgress("saving"));
}

}  // namespace

void AddPreviewCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<PreviewOptions>();
  CLI::App* command = app.add_subcommand(
      "preview", "A picture of a frame: grey, or colour for three planes; row 1 at the bottom");
  AddFileOption(*command, "file", options->file, "FITS file")->type_name("IN")->required();
  AddFileOption(*command, "-o,--output", options->output, "PNG file to write")
      ->type_name("OUT.png")
      ->required();
  AddHduOption(*command, options->hdu);
  command->add_option("--plane", options->plane, "One plane in grey, counted from 0")
      ->type_name("N")
      ->check(CLI::NonNegativeNumber);
  command->add_option("--bits", options->bits, "Bits of a sample: 8 (default) or 16")
      ->type_name("8|16")
      ->check(CLI::IsMember({8, 16}).description(""));
  command->add_flag("--no-flip", options->noFlip, "First row of the file on top");
  options->levels.Add(*command);
  command->callback([&session, options] { Preview(*options, session); });
}

}  // namespace korin::app
