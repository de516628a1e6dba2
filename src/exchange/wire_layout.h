#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

// Where things lie in the exchange mappings: byte offsets from their beginning.
// Integers and floating-point values are little-endian, booleans 32-bit integers,
// texts UTF-16 units. What no name here covers is never written.
namespace korin::exchange::wire {

static_assert(std::endian::native == std::endian::little,
              "values are copied in and out of the mappings as they are");

inline constexpr std::size_t kMaxPlanes = 3;
inline constexpr std::size_t kTextUnits = 256;  // with the end mark
inline constexpr std::size_t kTextBytes = 2 * kTextUnits;

// Image mapping.
namespace image {
inline constexpr std::size_t kBitsPixel = 0;
inline constexpr std::size_t kSigned = 4;
inline constexpr std::size_t kWidth = 8;
inline constexpr std::size_t kHeight = 12;
inline constexpr std::size_t kPlanes = 16;
inline constexpr std::size_t kBscale = 24;
inline constexpr std::size_t kBzero = 32;
inline constexpr std::size_t kLevelMin = 40;  // one double per plane
inline constexpr std::size_t kLevelMax = kLevelMin + 8 * kMaxPlanes;
inline constexpr std::size_t kOwnLevel = 88;
inline constexpr std::size_t kSaveableFormat = 92;
inline constexpr std::size_t kSaveableFile = 96;
inline constexpr std::size_t kOrgFileName = 100;
inline constexpr std::size_t kOrgFileFormat = kOrgFileName + kTextBytes;
inline constexpr std::size_t kOrgBitsPixel = 1124;
inline constexpr std::size_t kOrgPlanes = 1128;
inline constexpr std::size_t kOrgBayer = 1132;
inline constexpr std::size_t kOrgHoneyComb = 1136;
inline constexpr std::size_t kOrgDevelopment = 1140;
inline constexpr std::size_t kOrgWidth = 1144;
inline constexpr std::size_t kOrgHeight = 1148;
inline constexpr std::size_t kBayer = 1152;
inline constexpr std::size_t kHoneyComb = 1156;
inline constexpr std::size_t kRawImageBits = 1160;
inline constexpr std::size_t kDevelopment = 1164;
inline constexpr std::size_t kBytes = 1168;
static_assert(kLevelMax + 8 * kMaxPlanes == kOwnLevel);
static_assert(kOrgFileFormat + kTextBytes == kOrgBitsPixel);
static_assert(kDevelopment + 4 == kBytes);
}  // namespace image

// Header mapping. A rational is a numerator and a denominator, both doubles.
namespace header {
inline constexpr std::size_t kCards = 0;
inline constexpr std::size_t kCardSlots = 256;
inline constexpr std::size_t kCardUnits = 81;  // with the end mark
inline constexpr std::size_t kCardBytes = 2 * kCardUnits;
inline constexpr std::size_t kShutterSpeed = kCardSlots * kCardBytes;
inline constexpr std::size_t kFNumber = 41488;
inline constexpr std::size_t kIso = 41504;  // 16 bits, unsigned
inline constexpr std::size_t kLightSource = 41506;
inline constexpr std::size_t kFocalLength = 42024;
inline constexpr std::size_t kCameraMaker = 42040;
inline constexpr std::size_t kCameraModel = 42552;
inline constexpr std::size_t kGainFlag = 43064;
inline constexpr std::size_t kBayerGains = 43072;
inline constexpr std::size_t kBayerGainCount = 4;
inline constexpr std::size_t kHoneyCombGains = 43104;
inline constexpr std::size_t kHoneyCombGainCount = 8;
inline constexpr std::size_t kBytes = 43168;
static_assert(kShutterSpeed == 41472 && kShutterSpeed + 16 == kFNumber && kFNumber + 16 == kIso);
static_assert(kIso + 2 == kLightSource && kLightSource + kTextBytes + 6 == kFocalLength);
static_assert(kFocalLength + 16 == kCameraMaker && kCameraMaker + kTextBytes == kCameraModel);
static_assert(kCameraModel + kTextBytes == kGainFlag && kGainFlag + 8 == kBayerGains);
static_assert(kBayerGains + 8 * kBayerGainCount == kHoneyCombGains);
static_assert(kHoneyCombGains + 8 * kHoneyCombGainCount == kBytes);
}  // namespace header

// Pixel mapping: floats, row after row, plane after plane, without padding.
namespace pixels {
inline constexpr std::int64_t kBytes = 300120000;
inline constexpr std::int64_t kMaxSamples = kBytes / 4;
static_assert(kMaxSamples == 75030000);
}  // namespace pixels

}  // namespace korin::exchange::wire
