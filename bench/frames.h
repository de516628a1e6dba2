#pragma once

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "harness.h"
#include "korinimage/korinimage.h"
#include "peers.h"

namespace korin::bench {

using Policy = CVmManager::AllocationPolicy;

// The two paths, by the layout on which they run.
inline constexpr std::pair<const char*, Policy> kPaths[] = {{"kernel", Policy::Planes},
                                                            {"row", Policy::Blocks}};

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

inline std::shared_ptr<CVmManager> ManagerOf(std::int64_t budgetMiB) {
  auto configuration = CVmManagerConfiguration::DefaultConfiguration();
  configuration->MemoryRatio = 0;
  configuration->MinMemorySize = static_cast<std::int32_t>(budgetMiB);
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

template <typename T>
CImage ImageOf(const std::shared_ptr<CVmManager>& manager, std::int64_t width, std::int64_t height,
               int planes = 1) {
  return CImage(manager, TypeOf<T>(), static_cast<int>(width), static_cast<int>(height), planes,
                1.0, 0.0, std::is_signed_v<T>, CImage::ProgressPtr());
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
  static constexpr std::int64_t kBytes = kPixels * static_cast<std::int64_t>(sizeof(T));

  Frames() : m_pixels(SkyPixels<T>()), m_manager(ManagerOf(3000)) {
    for (const auto& [who, policy] : kPaths) {
      m_manager->SetAllocationPolicy(policy);
      CImage image = ImageOf<T>(m_manager, kWidth, kHeight);
      SetPixels(image, 0, m_pixels.data());
      m_images.emplace(policy, std::move(image));
    }
  }

  T* Pixels() { return m_pixels.data(); }
  // The image of a layout, with the manager's policy set to it.
  CImage& Image(Policy policy) {
    m_manager->SetAllocationPolicy(policy);
    return m_images.at(policy);
  }

 private:
  std::vector<T> m_pixels;
  std::shared_ptr<CVmManager> m_manager;
  std::map<Policy, CImage> m_images;
};

// What is read, and what is written over.
template <typename T>
Frames<T>& Sources() {
  return Shared<Frames<T>>();
}
template <typename T>
Frames<T>& Results() {
  struct Written : Frames<T> {};
  return Shared<Written>();
}

template <typename T>
Plane PlaneOf() {
  return {[] { return Sources<T>().Pixels(); }, NameOf<T>()};
}

inline void Append(std::vector<Contender>& contenders, std::vector<Contender> more) {
  for (Contender& contender : more) contenders.push_back(std::move(contender));
}

}  // namespace korin::bench
