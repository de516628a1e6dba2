#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "korinimage/image.h"
#include "korinimage/threads.h"
#include "support/memory_config.h"
#include "support/small_manager.h"

namespace korin::test {

inline const CImage::ProgressPtr kSilent;  // nobody watches

// How an image is kept: the answers must not depend on it.
struct Layout {
  const char* name;
  std::int32_t blockSize;  // bytes
  std::int64_t capacity;   // manager blocks of memory
  Policy madeUnder;
  Policy measuredUnder;
  int threads;
};

// (DataType, signed flag) of an element type.
template <typename T>
constexpr CImage::DataType TypeOf() {
  constexpr int kBits = 8 * static_cast<int>(sizeof(T));
  return static_cast<CImage::DataType>(std::is_floating_point_v<T> ? -kBits : kBits);
}

struct Shape {
  int width = 37;
  int height = 45;
  int planes = 3;
  std::int64_t Count() const { return std::int64_t{width} * height * planes; }
};

template <typename T>
std::vector<T> RandomPixels(const Shape& shape, unsigned seed = 1) {
  std::mt19937_64 random(seed);
  std::vector<T> pixels(static_cast<std::size_t>(shape.Count()));
  for (T& pixel : pixels) {
    if constexpr (std::is_floating_point_v<T>) {
      pixel = static_cast<T>(static_cast<double>(random() % 2000001) / 997.0 - 1000.0);
    } else {
      pixel = static_cast<T>(random());
    }
  }
  return pixels;
}

// Copies pixels in or out line by line, through locks as a file reader would.
template <typename T>
void WritePixels(CImage& image, const std::vector<T>& pixels) {
  const T* from = pixels.data();
  for (int plane = 0; plane < image.GetPlanes(); ++plane) {
    for (int y = 0; y < image.GetHeight(); ++y, from += image.GetWidth()) {
      CVmImage::AddressHandle locked;
      BYTE* to = image.Store()->GetImageAdr(0, y, plane, true, true, &locked);
      std::memcpy(to, from, sizeof(T) * static_cast<std::size_t>(image.GetWidth()));
      image.Unlock(locked);
    }
  }
}

template <typename T>
std::vector<T> ReadPixels(CImage& image) {
  std::vector<T> pixels(static_cast<std::size_t>(image.GetImageSize()) / sizeof(T));
  T* to = pixels.data();
  for (int plane = 0; plane < image.GetPlanes(); ++plane) {
    for (int y = 0; y < image.GetHeight(); ++y, to += image.GetWidth()) {
      const auto guard =
          image.Store()->PinBlock(image.Store()->GetLineRun(plane, y).block, BlockIntent::Read);
      const auto run = image.Store()->GetLineRun(plane, y);
      std::memcpy(to, guard.Address() + run.firstLine * image.Store()->GetBytesPerLine(),
                  sizeof(T) * static_cast<std::size_t>(image.GetWidth()));
    }
  }
  return pixels;
}

template <typename T>
CImage MakeImage(const std::shared_ptr<CVmManager>& manager, const Shape& shape,
                 const std::vector<T>& pixels, double bscale = 1.0, double bzero = 0.0) {
  CImage image(manager, TypeOf<T>(), shape.width, shape.height, shape.planes, bscale, bzero,
               std::is_signed_v<T>, kSilent);
  WritePixels(image, pixels);
  return image;
}

// Bits rather than values, so that NaN compares equal to itself and -0 is not 0.
inline std::uint64_t Bits(double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

class ImageTest : public testing::Test {
 protected:
  ~ImageTest() override { SetThreadCount(0); }

 private:
  ScopedMemoryConfig m_config;
};

}  // namespace korin::test
