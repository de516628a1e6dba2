#include <fmt/format.h>

#include <CLI/Option.hpp>
#include <CLI/TypeTools.hpp>
#include <CLI/Validators.hpp>
#include <algorithm>
#include <memory>
#include <string>

#include "commands.h"
#include "file_option.h"
#include "korinimage/exceptions.h"
#include "korinimage/scoped_progress.h"
#include "platform/text.h"
#include "star_field.h"

namespace korin::app {

namespace {

struct SynthOptions {
  std::filesystem::path output;
  StarFieldOptions field;
};

void AddCard(CHeader& header, std::string_view keyword, const std::string& value,
             std::string_view comment) {
  header.Add(
      platform::FromUtf8(fmt::format("{:<8}= {:>20} / {}", keyword, value, comment)).c_str());
}

std::string Text(std::string_view value) { return fmt::format("'{:<8}'", value); }

void AddCards(CHeader& header, const StarFieldOptions& field, int stars) {
  const auto text = [&](std::string_view key, std::string_view value, std::string_view comment) {
    header.Add(
        platform::FromUtf8(fmt::format("{:<8}= {:<20} / {}", key, Text(value), comment)).c_str());
  };
  text("OBJECT", "Synthetic field", "name of the object");
  text("IMAGETYP", "LIGHT", "kind of frame");
  text("TELESCOP", "Imaginary 200/1000", "telescope");
  text("INSTRUME", "Synthetic camera", "camera");
  text("FILTER", field.planes == 3 ? "RGB" : "L", "filter");
  text("DATE-OBS", "2024-01-15T21:30:00", "start of the exposure, UTC");
  AddCard(header, "EXPTIME", "120.00", "exposure in seconds");
  AddCard(header, "CCD-TEMP", "-15.0", "temperature of the sensor in degrees Celsius");
  AddCard(header, "GAIN", fmt::format("{:.2f}", field.gain), "electrons a count");
  AddCard(header, "RDNOISE", fmt::format("{:.2f}", field.readNoise), "read noise in counts");
  AddCard(header, "XPIXSZ", "3.80", "size of a pixel in micrometres");
  AddCard(header, "YPIXSZ", "3.80", "size of a pixel in micrometres");
  AddCard(header, "FOCALLEN", "1000.0", "focal length in millimetres");
  AddCard(header, "SEED", std::to_string(field.seed), "seed of the random numbers");
  AddCard(header, "NSTARS", std::to_string(stars), "stars in the field");
  header.Add(L"COMMENT Made by korinimage synth: sky with a gradient, stars, noise,");
  header.Add(L"COMMENT hot pixels. No such place exists.");
}

void Synthesise(const SynthOptions& options, Session& session) {
  const StarFieldOptions& field = options.field;
  const auto manager = session.Manager(std::int64_t{field.width} * 8);
  CImage image(manager, CImage::DataTypeInt16, field.width, field.height, field.planes, 1.0, 0.0,
               false, nullptr);
  const StarField stars(field);
  AddCards(image.Header(), field, stars.StarCount());
  CVmImage& store = *image.Store();
  {
    ImageRowsScopedProgress progress(session.MakeProgress("drawing"), field.planes, field.height);
    for (int plane = 0; plane < field.planes; ++plane) {
      for (std::int64_t y = 0; y < field.height;) {
        const CVmImage::LineRun run = store.GetLineRun(plane, y);
        const BlockGuard block = store.PinBlock(run.block, BlockIntent::Write);
        if (!block) {
          throw CVmMemoryAllocationError("a block of the image does not fit the memory budget");
        }
        BYTE* row = block.Address() + run.firstLine * store.GetBytesPerLine();
        for (const std::int64_t end = y + run.lines; y < end; ++y) {
          progress.Row(plane, y);
          stars.MakeRow(plane, static_cast<int>(y), reinterpret_cast<std::uint16_t*>(row));
          row += store.GetBytesPerLine();
        }
      }
    }
  }
  session.Save(image, options.output);
}

}  // namespace

void AddSynthCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<SynthOptions>();
  StarFieldOptions& field = options->field;
  CLI::App* command =
      app.add_subcommand("synth", "Make a synthetic camera frame of stars, 16 bits unsigned");
  AddFileOption(*command, "output", options->output, "FITS file to write")
      ->type_name("OUT.fits")
      ->required();
  const CLI::Range side(1, 1 << 20);
  command->add_option("--width", field.width, "Pixels of a row (default: 1280)")
      ->type_name("N")
      ->check(side);
  command->add_option("--height", field.height, "Rows (default: 1024)")
      ->type_name("N")
      ->check(side);
  command->add_option("--planes", field.planes, "Planes: 3 make a colour frame (default: 1)")
      ->type_name("N")
      ->check(CLI::Range(1, 1024));
  command->add_option("--seed", field.seed, "Another seed is another field (default: 1)")
      ->type_name("N");
  command->add_option("--stars", field.stars, "Number of stars (default: by the area)")
      ->type_name("N")
      ->check(CLI::Range(0, 2000000));
  command->add_option("--hot-pixels", field.hotPixels, "Number of hot pixels (default: by area)")
      ->type_name("N")
      ->check(CLI::Range(0, 2000000));
  command->add_option("--sky", field.sky, "Sky in counts (default: 900)")
      ->type_name("COUNTS")
      ->check(CLI::Range(0.0, 60000.0));
  command->add_option("--gradient", field.gradient, "Rise of the sky across (default: 250)")
      ->type_name("COUNTS")
      ->check(CLI::Range(-60000.0, 60000.0));
  command->add_option("--noise", field.readNoise, "Read noise in counts (default: 8)")
      ->type_name("COUNTS")
      ->check(CLI::Range(0.0, 10000.0));
  command->add_option("--fwhm", field.fwhm, "Width of a star in pixels (default: 3.2)")
      ->type_name("PIXELS")
      ->check(CLI::Range(0.5, 50.0));
  command->callback([&session, options] { Synthesise(*options, session); });
}

}  // namespace korin::app
