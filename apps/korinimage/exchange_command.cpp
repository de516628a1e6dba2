#include <fmt/format.h>

#include <CLI/Option.hpp>
#include <CLI/TypeTools.hpp>
#include <CLI/Validators.hpp>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "commands.h"
#include "exchange_turn.h"
#include "file_option.h"
#include "korinimage/io/file_error.h"
#include "korinimage/shared_mem.h"

namespace korin::app {

namespace {

struct ExchangeOptions {
  std::filesystem::path file;
  int hdu = FitsOptions::kFirstImage;
  int patience = 60;
};

class OpenExchange {
 public:
  OpenExchange() {
    if (CSharedMem::CreateFileMappings(1) == 0) {
      throw std::runtime_error("the shared memory of the exchange cannot be opened");
    }
  }
  OpenExchange(const OpenExchange&) = delete;
  OpenExchange& operator=(const OpenExchange&) = delete;
  ~OpenExchange() { CSharedMem::CloseMappingHandles(); }
};

// The memory carries floats: 32-bit integers and doubles would not come through it,
// so their pixels take the file whatever their number.
bool NeedsFile(const CImage& image) {
  return image.GetBitsPixel() == CImage::DataTypeInt32 ||
         image.GetBitsPixel() == CImage::DataTypeDouble;
}

void Send(const ExchangeOptions& options, Session& session) {
  const auto image = session.Load(options.file, options.hdu);
  if (image->GetPlanes() > 3) {
    throw std::runtime_error(
        fmt::format("an image of {} planes cannot be sent; at most 3 can", image->GetPlanes()));
  }
  const ExchangeTurn turn;
  turn.CheckFree();
  const OpenExchange exchange;
  const bool viaFile = NeedsFile(*image);
  if (CSharedMem::WriteSharedMemory(image.get(), viaFile ? 0 : 1) == 0 ||
      (viaFile && CSharedMem::WriteSharedFile(image.get()) == 0)) {
    throw std::runtime_error("the image cannot be handed over: shared memory or disk is short");
  }
  if (!turn.OfferUntilTaken(std::chrono::seconds(options.patience))) {
    throw std::runtime_error(
        fmt::format("nobody received the image within {} seconds", options.patience));
  }
}

void Receive(const ExchangeOptions& options, Session& session) {
  std::error_code error;
  if (!std::filesystem::is_directory(std::filesystem::absolute(options.file).parent_path(),
                                     error)) {
    throw FileError(options.file, "cannot be created", "the folder must exist and be writable");
  }
  // What killed runs left: a run that receives nothing makes no manager that would.
  CVmManager::DeleteAllSwapFiles(nullptr);
  const ExchangeTurn turn;
  if (!turn.WaitForOffer(std::chrono::seconds(options.patience))) {
    throw std::runtime_error(
        fmt::format("nobody sent an image within {} seconds", options.patience));
  }
  const OpenExchange exchange;
  // The size first: it decides on the size of the blocks.
  CImage announced;
  if (CSharedMem::ReadSharedMemory(nullptr, &announced, 0) == 0 || announced.GetWidth() < 1) {
    throw std::runtime_error("what was sent is not an image");
  }
  const auto manager = session.Manager(std::int64_t{announced.GetWidth()} * 8);
  const bool viaFile = NeedsFile(announced);
  CImage image;
  if (CSharedMem::ReadSharedMemory(manager, &image, viaFile ? 0 : 1) == 0 ||
      (viaFile && CSharedMem::ReadSharedFile(manager, &image) == 0)) {
    throw std::runtime_error("the pixels cannot be received: memory or disk is short");
  }
  // The sender may rely on it that what was taken is safe.
  session.Save(image, options.file);
  turn.Take();
}

void AddPatience(CLI::App& command, ExchangeOptions& options, const char* what) {
  command.add_option("--wait", options.patience, what)
      ->type_name("SECONDS")
      ->check(CLI::Range(0, 86400));
}

}  // namespace

void AddExchangeCommands(CLI::App& app, Session& session) {
  auto sending = std::make_shared<ExchangeOptions>();
  CLI::App* send = app.add_subcommand(
      "send", "Hand a frame to another process of this user, which runs receive");
  AddFileOption(*send, "file", sending->file, "FITS file")->type_name("FILE")->required();
  AddHduOption(*send, sending->hdu);
  AddPatience(*send, *sending, "How long to wait until the frame was received (default: 60)");
  send->callback([&session, sending] { Send(*sending, session); });

  auto receiving = std::make_shared<ExchangeOptions>();
  CLI::App* receive = app.add_subcommand("receive", "Save the frame that another process sends");
  AddFileOption(*receive, "output", receiving->file, "FITS file to write")
      ->type_name("OUT.fits")
      ->required();
  AddPatience(*receive, *receiving, "How long to wait for the sender (default: 60)");
  receive->callback([&session, receiving] { Receive(*receiving, session); });
}

}  // namespace korin::app
