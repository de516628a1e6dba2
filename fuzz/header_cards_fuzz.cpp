// Card lists under random edits, beside a plain model of the same edits; numbers
// and names of whatever cards arise.
#include <cmath>
#include <vector>

#include "fuzz_input.h"
#include "korinimage/header.h"
#include "platform/text.h"

using korin::fuzz::Input;
using korin::fuzz::Require;

namespace {

using Cards = std::vector<std::wstring>;

// Keys that meet often, so that edits find something.
std::wstring TakeKey(Input& input) {
  static const wchar_t* const kKeys[] = {L"HISTORY", L"A", L"", L"DETECTOR", L"CCD-TEMP"};
  const std::size_t at = input.Take<std::uint8_t>() % 6;
  return at < 5 ? std::wstring(kKeys[at]) : korin::platform::FromUtf8(input.TakeText());
}

// Text up to a zero, as the members take it: read as UTF-8 or as raw units, which
// need not be characters at all.
std::wstring TakeCard(Input& input) {
  const std::uint8_t kind = input.Take<std::uint8_t>();
  std::wstring card;
  if (kind % 4 == 0) {
    card.append(10, L' ');
  } else if (kind % 4 == 1) {
    card = TakeKey(input);
    card.resize(8, L' ');
    card += L"= ";
  }
  if (kind < 224) {
    card += korin::platform::FromUtf8(input.TakeText());
  } else {
    for (std::size_t n = kind - 224U; n > 0; --n) {
      card += static_cast<wchar_t>(input.Take<std::uint32_t>());
    }
  }
  return card.substr(0, card.find(L'\0'));
}

bool Matches(const std::wstring& card, const std::wstring& key) {
  std::wstring padded = key.substr(0, 8);
  padded.resize(8, L' ');
  return card.size() >= 8 && card.substr(0, 8) == padded;
}

void DeleteByHand(Cards& cards, const std::wstring& key) {
  for (std::size_t i = cards.size(); i-- > 0;) {
    if (!Matches(cards[i], key)) continue;
    do {
      cards.erase(cards.begin() + static_cast<std::ptrdiff_t>(i));
    } while (i < cards.size() && cards[i].starts_with(std::wstring(10, L' ')));
  }
}

void Edit(Input& input, CHeader& header, Cards& model) {
  const std::uint8_t operation = input.Take<std::uint8_t>() % 6;
  const int at = input.Take<std::uint8_t>() % 48;
  const auto index = static_cast<std::size_t>(at);
  if (operation == 4) {
    const std::wstring key = TakeKey(input);
    header.DeleteAll(key.c_str());
    DeleteByHand(model, key.c_str());
    return;
  }
  if (operation == 5) {
    Require(header.DeleteAt(at) == (index < model.size() ? 1 : 0), "DeleteAt tells what it did");
    if (index < model.size()) model.erase(model.begin() + at);
    return;
  }
  const std::wstring card = TakeCard(input);
  const std::wstring cut = korin::platform::CutToColumns(card, 80);
  Require(korin::platform::CutToColumns(cut, 80) == cut, "a cut card stays as it is");
  Require(korin::platform::FromUtf16(korin::platform::ToUtf16(cut)) == cut, "UTF-16 loses nothing");
  Require(korin::platform::ToUtf16(cut, 80).size() <= 80, "the limit of units holds");
  if (operation == 0) {
    header.InsertAt(at, card.c_str());
    if (index >= model.size()) model.resize(index);
    model.insert(model.begin() + at, cut);
  } else if (operation == 1) {
    header.SetAt(at, card.c_str());
    if (index < model.size()) model[index] = cut;
  } else {
    header.Add(card.c_str());
    model.push_back(cut);
  }
}

void Read(Input& input, const CHeader& header, const Cards& model) {
  const std::wstring key = TakeKey(input);
  int expected = -1;
  for (std::size_t i = 0; i < model.size() && expected < 0; ++i) {
    if (Matches(model[i], key.c_str())) expected = static_cast<int>(i);
  }
  Require(header.Find(key.c_str()) == expected, "Find gives the first match");
  int number = 0;
  double real = 0.0;
  const int found = expected < 0 ? 0 : 1;
  Require(header.GetHeaderInt(key.c_str(), number) == found, "a found card is an integer");
  Require(header.GetHeaderDouble(key.c_str(), real) == found, "a found card is a real");
  Require(!std::isnan(real), "no card is NaN");
  std::wstring name;
  Require(header.GetDetector(name) == 0 || name.size() <= 20, "names are short");
  Require(name.find(L'\'') == std::wstring::npos, "names have no quotes");
  header.GetCoolingTemperature(real);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  CHeader header;
  Cards model;
  while (!input.Empty()) {
    Edit(input, header, model);
    Read(input, header, model);
  }
  const CHeader copy(header);
  Require(copy.GetCount() == static_cast<int>(model.size()), "the count is right");
  for (std::size_t i = 0; i < model.size(); ++i) {
    Require(copy.GetAt(static_cast<int>(i)) == model[i], "the cards are right");
  }
  const tagFRational rational{input.Take<double>(), input.Take<double>()};
  std::wstring text;
  header.SetExposureShutterSpeed(rational);
  header.GetExposureShutterSpeed(text);
  header.SetExposureFNumber(rational);
  header.GetExposureFNumber(text);
  return 0;
}
