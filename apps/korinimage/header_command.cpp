#include <fmt/format.h>

#include <CLI/Option.hpp>
#include <CLI/TypeTools.hpp>
#include <CLI/Validators.hpp>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>

#include "card_value.h"
#include "commands.h"
#include "file_option.h"
#include "json.h"
#include "korinimage/io/file_error.h"
#include "observation.h"
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
  std::string card = PrintableText(header.GetAt(index));
  card.resize(card.find_last_not_of(' ') + 1);
  return card;
}

void AddListCommand(CLI::App& header) {
  auto options = std::make_shared<HeaderOptions>();
  CLI::App* command = header.add_subcommand("list", "All cards of the image");
  AddFileOption(*command, "file", options->file, "FITS file")->type_name("FILE")->required();
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
  AddFileOption(*command, "file", options->file, "FITS file")->type_name("FILE")->required();
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

struct TimesOptions {
  std::filesystem::path file;
  std::filesystem::path output;
  int hdu = FitsOptions::kFirstImage;
  std::string start;
  std::string end;
  double exposure = 0.0;
  int coadd = 1;
};

// A Julian Date from text, by the rules that DATE-OBS is read with, except that days
// and times that do not exist are no dates of the near future here.
double JulianDate(const std::string& text) {
  CHeader header;
  header.Add(platform::FromUtf8("DATE-OBS= '" + text + "'").c_str());
  tagADATE date;
  double jd = 0.0;
  const bool found = header.GetDateTime(date) != 0 && header.GetDateTime(jd) != 0;
  const std::chrono::year_month_day day{std::chrono::year(date.year),
                                        std::chrono::month(static_cast<unsigned>(date.month)),
                                        std::chrono::day(static_cast<unsigned>(date.day))};
  const auto isWithin = [](double value, double end) { return value >= 0.0 && value < end; };
  if (!found || !day.ok() || !isWithin(date.hour, 24.0) || !isWithin(date.minute, 60.0) ||
      !isWithin(date.second, 61.0)) {
    throw UsageError("not a date and time like 2024-01-15T21:30:00: " + text);
  }
  return jd;
}

void SetTimes(const TimesOptions& options, Session& session) {
  constexpr double kSecondsPerDay = 86400.0;
  const double start = JulianDate(options.start);
  const double end =
      options.end.empty() ? start + options.exposure / kSecondsPerDay : JulianDate(options.end);
  const auto image = session.Load(options.file, options.hdu);
  CHeader& header = image->Header();
  if (header.SetMidDateTime(start, end, options.exposure, options.coadd,
                            options.exposure / options.coadd) == 0) {
    throw std::runtime_error("these times cannot be written: years from 1900 on can");
  }
  WarnOfReversedTimes(header);
  session.Save(*image, options.output);
}

void AddSetTimesCommand(CLI::App& header, Session& session) {
  auto options = std::make_shared<TimesOptions>();
  CLI::App* command = header.add_subcommand(
      "set-times", "Write the cards of observation time and exposure into a copy");
  AddFileOption(*command, "file", options->file, "FITS file")->type_name("IN")->required();
  AddFileOption(*command, "output", options->output, "FITS file to write")
      ->type_name("OUT")
      ->required();
  AddHduOption(*command, options->hdu);
  command->add_option("--start", options->start, "Start, UTC: 2024-01-15T21:30:00")
      ->type_name("TIME")
      ->required();
  command->add_option("--exposure", options->exposure, "Exposure in seconds, all in all")
      ->type_name("SECONDS")
      ->required()
      ->check(CLI::NonNegativeNumber);
  command->add_option("--end", options->end, "End, UTC (default: the start plus the exposure)")
      ->type_name("TIME");
  command->add_option("--coadd", options->coadd, "Exposures added up (default: 1)")
      ->type_name("N")
      ->check(CLI::PositiveNumber);
  command->callback([&session, options] { SetTimes(*options, session); });
}

}  // namespace

void AddHeaderCommand(CLI::App& app, Session& session) {
  CLI::App* command = app.add_subcommand("header", "The FITS header of an image");
  command->require_subcommand(1);
  AddListCommand(*command);
  AddGetCommand(*command);
  AddSetTimesCommand(*command, session);
}

}  // namespace korin::app
