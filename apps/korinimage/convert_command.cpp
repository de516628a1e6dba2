#include <fmt/format.h>

#include <CLI/Option.hpp>
#include <CLI/TypeTools.hpp>
#include <CLI/Validators.hpp>
#include <algorithm>
#include <cctype>
#include <memory>

#include "commands.h"
#include "conversion.h"
#include "file_option.h"
#include "level_options.h"
#include "measure.h"

namespace korin::app {

namespace {

struct ConvertOptions {
  std::filesystem::path file;
  std::filesystem::path output;
  int hdu = FitsOptions::kFirstImage;
  int bits = 0;
  bool isSigned = false;
  LevelOptions levels{CImage::ChangeBitsLevel::Automatic, true};
};

struct CodeRange {
  double low = 0.0;
  double span = 0.0;
};

CodeRange RangeOf(CImage::DataType type, bool isSigned) {
  const double span = type == CImage::DataTypeInt8    ? 255.0
                      : type == CImage::DataTypeInt16 ? 65535.0
                                                      : 4294967295.0;
  const bool negative = isSigned && type != CImage::DataTypeInt8;
  return {negative ? -(span + 1.0) / 2.0 : 0.0, span};
}

// BSCALE and BZERO of a converted image follow from the data's range, which fits the
// pixels only when the source was unscaled (raw) and the levels were that range
// (cooked). Here the levels are one pair for all planes, so the scaling that really
// holds can be told.
void CorrectScaling(CImage& image, bool raw, double sourceBzero, const Bounds& levels) {
  if (image.GetBitsPixel() < 0) return;  // cast as they stood: the scaling still holds
  if (raw) {
    // Stored is now physical + shift, and BZERO has become the source's less shift.
    image.SetBzero(image.GetBzero() - sourceBzero);
    image.SetBscale(1.0);
    return;
  }
  const CodeRange codes = RangeOf(image.GetBitsPixel(), image.IsSigned());
  image.SetBscale((levels.max - levels.min) / codes.span);
  image.SetBzero(levels.min - image.GetBscale() * codes.low);
}

void Convert(const ConvertOptions& options, Session& session) {
  std::string extension = options.output.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (extension == ".png") throw UsageError("convert writes FITS; use preview for a PNG picture");
  const auto type = static_cast<CImage::DataType>(options.bits);
  if (options.isSigned && type != CImage::DataTypeInt16 && type != CImage::DataTypeInt32) {
    throw UsageError("--signed goes with --bits 16 or 32");
  }
  const auto image = session.Load(options.file, options.hdu);
  const bool isSigned = type < 0 || options.isSigned;
  const bool same = image->GetBitsPixel() == type &&
                    (image->IsSigned() == isSigned || type < 0 || type == CImage::DataTypeInt8);
  if (!same) {
    options.levels.Apply(*image);
    const double sourceBzero = image->GetBzero();
    const Bounds levels{image->GetLevelMin(0), image->GetLevelMax(0)};
    auto mode = options.levels.Mode();
    if (mode == CImage::ChangeBitsLevel::Automatic) {
      mode = image->IsBitsChangeable(type, isSigned) ? CImage::ChangeBitsLevel::Raw
                                                     : CImage::ChangeBitsLevel::Cooked;
    }
    ConvertPixels(*image, type, isSigned, mode, session);
    if (mode != CImage::ChangeBitsLevel::MinMax) {
      CorrectScaling(*image, mode == CImage::ChangeBitsLevel::Raw, sourceBzero, levels);
    }
  }
  session.Save(*image, options.output);
}

}  // namespace

void AddConvertCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<ConvertOptions>();
  CLI::App* command = app.add_subcommand(
      "convert", "Change the pixel type; BSCALE and BZERO keep physical values where they can");
  AddFileOption(*command, "file", options->file, "FITS file")->type_name("IN")->required();
  AddFileOption(*command, "output", options->output, "FITS file to write")
      ->type_name("OUT")
      ->required();
  AddHduOption(*command, options->hdu);
  command->add_option("--bits", options->bits, "Pixel type by BITPIX: 8, 16, 32, -32 or -64")
      ->type_name("BITPIX")
      ->required()
      ->check(CLI::IsMember({8, 16, 32, -32, -64}).description(""));
  command->add_flag("--signed", options->isSigned, "Signed integers (16 and 32 bits)");
  options->levels.Add(*command);
  command->callback([&session, options] { Convert(*options, session); });
}

}  // namespace korin::app
