#include <CLI/Option.hpp>
#include <CLI/TypeTools.hpp>
#include <CLI/Validators.hpp>
#include <memory>
#include <optional>

#include "commands.h"
#include "file_option.h"
#include "interrupt.h"
#include "korinimage/exceptions.h"

namespace korin::app {

namespace {

struct EditOptions {
  std::filesystem::path file;
  std::filesystem::path output;
  int hdu = FitsOptions::kFirstImage;
  double value = 0.0;
  std::optional<int> plane;
};

std::shared_ptr<EditOptions> AddFiles(CLI::App& command) {
  auto options = std::make_shared<EditOptions>();
  AddFileOption(command, "file", options->file, "FITS file")->type_name("IN")->required();
  AddFileOption(command, "output", options->output, "FITS file to write")
      ->type_name("OUT")
      ->required();
  AddHduOption(command, options->hdu);
  return options;
}

}  // namespace

void AddFillCommand(CLI::App& app, Session& session) {
  CLI::App* command = app.add_subcommand("fill", "Set all pixels to one stored value");
  const auto options = AddFiles(*command);
  command
      ->add_option("--value", options->value,
                   "Stored value; integers keep its low bits, so 300 is 44 in 8 bits")
      ->type_name("VALUE")
      ->required();
  command->add_option("--plane", options->plane, "One plane only, counted from 0")
      ->type_name("N")
      ->check(CLI::NonNegativeNumber);
  command->callback([&session, options] {
    const auto image = session.Load(options->file, options->hdu);
    if (options->plane && *options->plane >= image->GetPlanes()) {
      throw UsageError("there is no plane " + std::to_string(*options->plane));
    }
    image->Fill(options->plane.value_or(-1), options->value);
    CheckInterrupt();
    session.Save(*image, options->output);
  });
}

void AddPhysicalCommand(CLI::App& app, Session& session) {
  CLI::App* command = app.add_subcommand(
      "physical", "Write physical values: 64-bit reals with BSCALE and BZERO applied");
  const auto options = AddFiles(*command);
  command->callback([&session, options] {
    const auto image = session.Load(options->file, options->hdu);
    const auto physical = image->ScalingAppliedImage(session.MakeProgress("scaling"));
    if (physical == nullptr) {
      throw CVmMemoryAllocationError("there is no room for an image of 64-bit reals");
    }
    CheckInterrupt();
    // The values are physical already; the attributes still describe the source.
    physical->SetBscale(1.0);
    physical->SetBzero(0.0);
    session.Save(*physical, options->output);
  });
}

}  // namespace korin::app
