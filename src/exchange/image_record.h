#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "exchange/wire_layout.h"
#include "korinimage/image.h"

namespace korin::exchange {

// The contents of the image mapping.
struct ImageRecord {
  std::int32_t bitsPixel = 0;
  bool isSigned = false;
  std::int32_t width = 0;
  std::int32_t height = 0;
  std::int32_t planes = 0;
  double bscale = 1.0;
  double bzero = 0.0;
  std::array<double, wire::kMaxPlanes> levelMin{};  // of the first `planes` planes
  std::array<double, wire::kMaxPlanes> levelMax{};
  bool ownLevel = false;
  bool saveableFormat = false;
  bool saveableFile = false;
  std::wstring orgFileName;
  std::wstring orgFileFormat;
  std::int32_t orgBitsPixel = 0;
  std::int32_t orgPlanes = 0;
  bool orgBayer = false;
  bool orgHoneyComb = false;
  bool orgDevelopment = false;
  std::int32_t orgWidth = 0;
  std::int32_t orgHeight = 0;
  bool bayer = false;
  bool honeyComb = false;
  std::int32_t rawImageBits = 0;
  bool development = false;
};

// Reads a copy of the mapping, whose bytes may be anything; wire::image::kBytes of
// them. No value when the type is unknown, a size negative or the plane count more
// than the mapping has room for; with `withPixels` also when there is no pixel.
std::optional<ImageRecord> ParseImage(std::span<const std::byte> bytes, bool withPixels);
// Writes the record over a copy of the mapping; bytes without a meaning stay.
void EncodeImage(const ImageRecord& record, std::span<std::byte> bytes);

// The record of an image; no value for more planes than the mapping has room for.
std::optional<ImageRecord> RecordOf(const CImage& image);
// Sets the attributes and levels of an image; its store and header stay.
void ApplyRecord(const ImageRecord& record, CImage& image);

}  // namespace korin::exchange
