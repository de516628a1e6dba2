#pragma once

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "korinimage/korinimage.h"
#include "peers.h"

// The 24-megapixel frame on which everything is measured.
namespace korin::bench {

using Policy = CVmManager::AllocationPolicy;

inline constexpr std::int64_t kWidth = 6000;
inline constexpr std::int64_t kHeight = 4000;
inline constexpr std::int64_t kPixels = kWidth * kHeight;

template <typename T>
constexpr CImage::DataType TypeOf() {
  constexpr int kBits = 8 * static_cast<int>(sizeof(T));
  return static_cast<CImage::DataType>(std::is_floating_point_v<T> ? -kBits : kBits);
}

template <typename T>
std::string NameOf() {
  if (std::is_floating_point_v<T>) return sizeof(T) == 4 ? "float" : "double";
  return (std::is_signed_v<T> ? "int" : "uint") + std::to_string(8 * sizeof(T));
}

inline std::shared_ptr<CVmManager> ManagerOf(std::int64_t budgetMiB, std::int32_t blockSize = 0) {
  auto configuration = CVmManagerConfiguration::DefaultConfiguration();
  configuration->MemoryRatio = 0;
  configuration->MinMemorySize = static_cast<std::int32_t>(budgetMiB);
  if (blockSize > 0) configuration->BlockSize = blockSize;
  return CVmManager::Create(std::move(configuration));
}

// Sky-like: noise around a background.
template <typename T>
std::vector<T> SkyPixels(std::int64_t count = kPixels) {
  std::vector<T> values(static_cast<std::size_t>(count));
  std::mt19937 random(1);
  for (T& value : values) {
    value = static_cast<T>(sizeof(T) == 1 ? random() % 64 : 1000 + random() % 4096);
  }
  return values;
}

inline void SetPixels(CImage& image, std::int64_t plane, const void* pixels) {
  CVmImage& store = *image.Store();
  const auto* from = static_cast<const char*>(pixels);
  for (std::int64_t y = 0; y < store.GetHeight();) {
    const auto run = store.GetLineRun(plane, y);
    const auto block = store.PinBlock(run.block, BlockIntent::Write);
    std::memcpy(block.Address() + run.firstLine * store.GetBytesPerLine(),
                from + y * store.GetBytesPerLine(),
                static_cast<std::size_t>(run.lines * store.GetBytesPerLine()));
    y += run.lines;
  }
}

// A pixel type's frame in plain memory and as images of both layouts.
template <typename T>
class Frames {
 public:
  Frames() : m_pixels(SkyPixels<T>()), m_manager(ManagerOf(3000)) {
    for (const Policy policy : {Policy::Planes, Policy::Blocks}) {
      m_manager->SetAllocationPolicy(policy);
      CImage image(m_manager, TypeOf<T>(), kWidth, kHeight, 1, 1.0, 0.0, std::is_signed_v<T>,
                   CImage::ProgressPtr());
      SetPixels(image, 0, m_pixels.data());
      m_images.emplace(policy, std::move(image));
    }
  }

  const T* Pixels() const { return m_pixels.data(); }
  T* Pixels() { return m_pixels.data(); }
  Plane PlainPlane() const { return {m_pixels.data(), kWidth, kHeight, NameOf<T>()}; }
  // The image of a layout, with the manager's policy set to it.
  CImage& Image(Policy policy) {
    m_manager->SetAllocationPolicy(policy);
    return m_images.at(policy);
  }
  const std::shared_ptr<CVmManager>& Manager() const { return m_manager; }

 private:
  std::vector<T> m_pixels;
  std::shared_ptr<CVmManager> m_manager;
  std::map<Policy, CImage> m_images;
};

}  // namespace korin::bench
