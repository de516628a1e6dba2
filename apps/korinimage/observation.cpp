#include "observation.h"

#include <fmt/format.h>

#include <cstdio>
#include <initializer_list>
#include <optional>

#include "card_value.h"
#include "platform/text.h"

namespace korin::app {

namespace {

std::string DateText(const tagADATE& date) {
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:06.3f} UTC", date.year, date.month, date.day,
                     date.hour, date.minute, date.second);
}

// The cards of the times and numbers in fixed format, which is the one that the
// getters of CHeader read; numbers that are none are left out.
CHeader FixedFormat(const CHeader& header) {
  CHeader fixed;
  const auto add = [&](const std::wstring& key, const std::string& value) {
    fixed.Add(platform::FromUtf8(fmt::format("{:<8}= {}", platform::ToUtf8(key), value)).c_str());
  };
  for (const wchar_t* key : {L"DATE-OBS", L"UT-STR", L"UT-END", L"UT", L"TIME-OBS"}) {
    if (const auto value = CardValue(header, key)) add(key, '\'' + *value + '\'');
  }
  for (const wchar_t* key : {L"EXPTIME", L"DET-TMP", L"CCD-TEMP"}) {
    // Two blanks more: some getters leave out a column.
    if (const auto number = CardNumber(header, key)) add(key, fmt::format("  {:>18}", *number));
  }
  return fixed;
}

// The end of the exposure, where it lies before the start.
std::optional<tagADATE> ReversedEnd(const CHeader& fixed) {
  double start = 0.0;
  double end = 0.0;
  tagADATE date;
  const bool reversed = fixed.GetDateTime(start) != 0 && fixed.GetEndDateTime(end) != 0 &&
                        end < start && fixed.GetEndDateTime(date) != 0;
  return reversed ? std::optional(date) : std::nullopt;
}

}  // namespace

std::vector<std::pair<std::string, std::string>> Observation(const CHeader& header) {
  std::vector<std::pair<std::string, std::string>> entries;
  for (const auto& [name, key] : {std::pair{"object", L"OBJECT"},
                                  {"telescope", L"TELESCOP"},
                                  {"instrument", L"INSTRUME"},
                                  {"filter", L"FILTER"},
                                  {"observer", L"OBSERVER"}}) {
    const std::string text = CardValue(header, key).value_or("");
    if (!text.empty()) entries.emplace_back(name, text);
  }
  const CHeader fixed = FixedFormat(header);
  tagADATE date;
  if (fixed.GetDateTime(date) != 0) entries.emplace_back("start", DateText(date));
  if (const auto end = ReversedEnd(fixed)) {
    entries.emplace_back("end", DateText(*end));
  } else if (fixed.GetMidDateTime(date) != 0) {
    entries.emplace_back("middle", DateText(date));
  }
  double number = 0.0;
  if (fixed.GetExposureTime(number) != 0) {
    entries.emplace_back("exposure", fmt::format("{} s", number));
  }
  if (fixed.GetCoolingTemperature(number) != 0) {
    entries.emplace_back("temperature", fmt::format("{:.10g} degrees Celsius", number));
  }
  return entries;
}

void WarnOfReversedTimes(const CHeader& header) {
  const CHeader fixed = FixedFormat(header);
  const auto end = ReversedEnd(fixed);
  tagADATE start;
  if (!end || fixed.GetDateTime(start) == 0) return;
  std::fflush(stdout);
  fmt::print(stderr,
             "korinimage: the cards put the end ({}) before the start ({}), as they do when an "
             "exposure crosses midnight\n",
             DateText(*end), DateText(start));
}

}  // namespace korin::app
