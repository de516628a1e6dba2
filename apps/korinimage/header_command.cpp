#include <fmt/format.h>

#include <CLI/Option.hpp>
#include <CLI/TypeTools.hpp>
#include <memory>
#include <string>

#include "card_value.h"
#include "commands.h"
#include "json.h"
#include "korinimage/io/file_error.h"
#include "platform/text.h"

namespace korin::app {

namespace {

struct HeaderOptions {
  std::filesystem::path file;
  std::string key;
  int hdu = FitsOptions::kFirstImage;
  bool card = false;
  bool json = false;
};

CHeader ReadHeader(const HeaderOptions& options) {
  FitsOptions unit;
  unit.hdu = options.hdu;
  return DescribeFits(options.file, unit).header;
}

std::string CardText(const CHeader& header, int index) {
  std::string card = platform::ToUtf8(header.GetAt(index));
  card.resize(card.find_last_not_of(' ') + 1);
  // A file must not send control sequences to the terminal.
  for (char& c : card) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
  }
  return card;
}

void AddListCommand(CLI::App& header) {
  auto options = std::make_shared<HeaderOptions>();
  CLI::App* command = header.add_subcommand("list", "All cards of the image");
  command->add_option("file", options->file, "FITS file")->type_name("FILE")->required();
  AddHduOption(*command, options->hdu);
  command->add_flag("--json", options->json, "Print a JSON array of cards");
  command->callback([options] {
    const CHeader cards = ReadHeader(*options);
    JsonWriter json;
    json.BeginArray();
    for (int i = 0; i < cards.GetCount(); ++i) {
      const std::string text = CardText(cards, i);
      json.Value(text);
      if (!options->json) fmt::print("{}\n", text);
    }
    json.EndArray();
    if (options->json) fmt::print("{}\n", json.Text());
  });
}

void AddGetCommand(CLI::App& header) {
  auto options = std::make_shared<HeaderOptions>();
  CLI::App* command = header.add_subcommand("get", "The value of one keyword");
  command->add_option("file", options->file, "FITS file")->type_name("FILE")->required();
  command->add_option("key", options->key, "Keyword, e.g. EXPTIME")->type_name("KEY")->required();
  AddHduOption(*command, options->hdu);
  command->add_flag("--card", options->card, "Print the whole card");
  command->callback([options] {
    const CHeader cards = ReadHeader(*options);
    const std::wstring key = platform::FromUtf8(options->key);
    const auto value = CardValue(cards, key);
    if (!value) throw FileError(options->file, "has no card " + options->key);
    fmt::print("{}\n", options->card ? CardText(cards, cards.Find(key.c_str())) : *value);
  });
}

}  // namespace

void AddHeaderCommand(CLI::App& app, Session&) {
  CLI::App* command = app.add_subcommand("header", "The FITS header of an image");
  command->require_subcommand(1);
  AddListCommand(*command);
  AddGetCommand(*command);
}

}  // namespace korin::app
