#pragma once

#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "exchange/header_record.h"
#include "exchange/image_record.h"
#include "image/image_fixture.h"
#include "kernels/element.h"
#include "korinimage/image.h"
#include "platform/text.h"
#include "support/store_bytes.h"

// Images that both partners of an exchange can make and compare.
namespace korin::test {

struct SampleKind {
  int type;  // DataType
  bool isSigned;
};
inline constexpr SampleKind kSampleKinds[] = {{8, false},  {16, true},   {16, false}, {32, true},
                                              {32, false}, {-32, false}, {-64, true}};

inline constexpr Shape kSampleShape{37, 29, 3};

// Blocks of a few lines, some of them in the swap file.
inline std::shared_ptr<CVmManager> MakeSampleManager(int policy) {
  auto manager = policy == 0 ? MakeManager(1024, 8) : MakeManager(1024, 1000);
  manager->SetAllocationPolicy(static_cast<Policy>(policy));
  return manager;
}

template <typename T>
std::vector<T> SamplePixels(const Shape& shape) {
  auto pixels = RandomPixels<T>(shape, 7);
  if constexpr (std::is_floating_point_v<T>) {
    const T odd[] = {T(300.7),
                     T(-1.5),
                     T(-0.0),
                     T(1e30),
                     std::numeric_limits<T>::infinity(),
                     std::numeric_limits<T>::quiet_NaN()};
    for (std::size_t i = 0; i < pixels.size(); i += 13) pixels[i] = odd[i % std::size(odd)];
  }
  return pixels;
}

// Everything that travels, and some that does not, set to values of its own.
inline void SetSampleFields(CImage& image) {
  image.SetBscale(0.25);
  image.SetBzero(-1e10);
  for (int plane = 0; plane < image.GetPlanes(); ++plane) {
    image.SetLevel(plane, plane - 0.5, 1000.0 + plane);
  }
  image.SetOwnLevel(true);
  image.SetSaveableFile(true);
  image.SetOrgFileName(std::wstring(L"M 31 \u00e4\u3042 ") +
                       platform::FromUtf8("\xF0\x9F\x94\xAD.fits"));
  image.SetOrgFileFormat(std::wstring(L"FITS"));
  image.SetOrgBitsPixel(static_cast<CImage::SourceType>(-7));
  image.SetOrgPlanes(4);
  image.SetOrgBayerImage(true);
  image.SetOrgDevelopmentImage(true);
  image.SetOrgWidth(6000);
  image.SetOrgHeight(-1);
  image.SetHoneyCombImage(true);
  image.SetRawImageBits(14);
  CHeader& header = image.Header();
  header.Add(L"SIMPLE  =                    T");
  header.Add(L"");
  header.Add(
      L"COMMENT with \u00e9 and a long tail 0123456789012345678901234567890123456789 the end");
  header.SetExposureShutterSpeed({1.0, 250.0});
  header.SetExposureFNumber({28.0, 10.0});
  header.SetFocalLength({0.0, 0.0});
  header.SetISO(65535);
  header.SetLightSource(L"stars");
  header.SetCameraMaker(L"maker");
  header.SetCameraModel(L"model");
  header.SetWBShootingGain(-3);
  for (int i = 0; i < 4; ++i) header.SetWBShootingGainBayer(i, i + 0.125);
  for (int i = 0; i < 8; ++i) header.SetWBShootingGainHoneyComb(i, -i - 0.125);
}

inline CImage MakeSample(const SampleKind& kind, int policy, const Shape& shape = kSampleShape) {
  // Images hold their manager weakly: these live as long as the process.
  static std::map<int, std::shared_ptr<CVmManager>> managers;
  auto& manager = managers[policy];
  if (!manager) manager = MakeSampleManager(policy);
  const auto type = static_cast<CImage::DataType>(kind.type);
  CImage image(manager, type, shape.width, shape.height, shape.planes, 1.0, 0.0, kind.isSigned,
               kSilent);
  DispatchElement(*ElementKindOf(kind.type, kind.isSigned), [&]<typename T>(std::type_identity<T>) {
    WritePixels(image, SamplePixels<T>(shape));
  });
  SetSampleFields(image);
  return image;
}

// All that an exchange carries, and what the receiver makes of it beside; images are
// alike when their texts are.
inline std::string Describe(CImage& image) {
  namespace wire = exchange::wire;
  std::vector<std::byte> fields(wire::image::kBytes + wire::header::kBytes);
  const auto both = std::span(fields);
  exchange::EncodeImage(exchange::RecordOf(image).value(), both.first(wire::image::kBytes));
  exchange::EncodeHeader(exchange::RecordOf(image.Header()), both.last(wire::header::kBytes));
  std::string text = "dimension " + std::to_string(image.GetDimension());
  for (const int axis : image.GetAxes()) text += ", axis " + std::to_string(axis);
  for (const double range : image.GetLevelRange()) text += ", levels " + std::to_string(range);
  text.append(reinterpret_cast<const char*>(fields.data()), fields.size());
  if (image.Store() == nullptr) return text + "no pixels";
  const std::vector<BYTE> pixels = StoreBytes(*image.Store());
  return text.append(pixels.begin(), pixels.end());
}

// What a receiver of a sample has: `byFile` says which way its pixels took.
inline CImage MakeReceived(const SampleKind& kind, bool byFile, int policy) {
  CImage image = MakeSample(kind, policy);
  image.Header().SetAt(1, L" ");  // an empty card travels as a blank
  const bool travels = byFile || kind.type == 8 || kind.type == 16 || kind.type == -32;
  if (!travels) image.Fill(-1, 0.0);
  return image;
}

}  // namespace korin::test
