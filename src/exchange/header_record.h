#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "exchange/wire_layout.h"
#include "korinimage/header.h"

namespace korin::exchange {

// The contents of the header mapping. Colour-filter pattern, gain and temperature
// of a header do not travel.
struct HeaderRecord {
  std::vector<std::wstring> cards;
  tagFRational shutterSpeed;
  tagFRational fNumber;
  std::uint16_t iso = 0;
  std::wstring lightSource;
  tagFRational focalLength;
  std::wstring cameraMaker;
  std::wstring cameraModel;
  std::int32_t gainFlag = 0;
  std::array<double, wire::header::kBayerGainCount> bayerGains{};
  std::array<double, wire::header::kHoneyCombGainCount> honeyCombGains{};
};

// Reads a copy of the mapping, whose bytes may be anything; wire::header::kBytes of
// them. The first empty slot ends the cards.
HeaderRecord ParseHeader(std::span<const std::byte> bytes);
// Writes the record over a copy of the mapping; bytes without a meaning stay. Cards
// beyond the last slot are left out; an empty card becomes one blank, so that it
// does not end the list.
void EncodeHeader(const HeaderRecord& record, std::span<std::byte> bytes);

HeaderRecord RecordOf(const CHeader& header);
// Sets the fields of a header and appends the cards to its own.
void ApplyRecord(const HeaderRecord& record, CHeader& header);

}  // namespace korin::exchange
