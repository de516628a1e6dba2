#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "exchange/dib_handle.h"
#include "image/image_fixture.h"
#include "korinimage/global_memory.h"
#include "support/recording_progress.h"
#include "support/system.h"

namespace korin::test {

using Bytes = std::vector<BYTE>;
using Rgb = std::array<BYTE, 3>;  // red, green, blue

inline void Append(Bytes& bytes, std::uint32_t value, int count) {
  for (int i = 0; i < count; ++i) bytes.push_back(static_cast<BYTE>(value >> 8 * i));
}

// A packed bitmap as a test describes it; whatever is put in is written.
struct Bitmap {
  int width = 0;
  int height = 0;  // negative: top row first
  int bits = 24;
  std::uint32_t compression = 0;
  std::uint32_t colorsUsed = 0;
  std::uint32_t headerBytes = 40;
  std::vector<std::uint32_t> masks;
  std::vector<Rgb> table;
  Bytes pixels;

  // Rows of `pixel(x, y)`, y = 0 at the top, with rubbish in the padding.
  template <typename Pixel>
  void SetPixels(Pixel&& pixel) {
    const int rows = std::abs(height);
    pixels.clear();
    for (int stored = 0; stored < rows; ++stored) {
      const int y = height > 0 ? rows - 1 - stored : stored;
      std::uint32_t pending = 0;
      int filled = 0;
      for (int x = 0; x < width; ++x) {
        const std::uint32_t value = pixel(x, y);
        if (bits >= 8) {
          Append(pixels, value, bits / 8);
          continue;
        }
        pending = pending << bits | value;
        filled += bits;
        if (filled == 8 || x == width - 1) {
          pixels.push_back(static_cast<BYTE>(pending << (8 - filled)));
          pending = 0;
          filled = 0;
        }
      }
      for (BYTE rubbish = 0xA1; pixels.size() % 4 != 0; rubbish += 0x1B) pixels.push_back(rubbish);
    }
  }

  Bytes Pack() const {
    Bytes block;
    Append(block, headerBytes, 4);
    Append(block, static_cast<std::uint32_t>(width), 4);
    Append(block, static_cast<std::uint32_t>(height), 4);
    Append(block, 1, 2);
    Append(block, static_cast<std::uint32_t>(bits), 2);
    Append(block, compression, 4);
    block.resize(32);
    Append(block, colorsUsed, 4);
    block.resize(40);
    for (const std::uint32_t mask : masks) Append(block, mask, 4);
    if (block.size() < headerBytes && headerBytes < 200) block.resize(headerBytes);
    for (const Rgb& c : table) block.insert(block.end(), {c[2], c[1], c[0], 0x77});
    block.insert(block.end(), pixels.begin(), pixels.end());
    return block;
  }
};

// A global-memory block of the test's own.
class Dib {
 public:
  explicit Dib(const Bytes& bytes) : handle(AllocGlobalMemory(std::ssize(bytes))) {
    std::ranges::copy(bytes, DibLock(handle).Bytes().begin());
  }
  ~Dib() { FreeGlobalMemory(handle); }
  Dib(const Dib&) = delete;
  Dib& operator=(const Dib&) = delete;

  Bytes Read() const {
    const DibLock lock(handle);
    return {lock.Bytes().begin(), lock.Bytes().end()};
  }

  HDIB handle;
};

class DibTest : public ImageTest {
 protected:
  // The pixels of the image made of a block: planes of rows; empty: refused.
  std::optional<Bytes> Attach(const Bytes& block) {
    const Dib dib(block);
    if (!image.AttachDIB(manager, dib.handle, kSilent)) return std::nullopt;
    return ReadPixels<BYTE>(image);
  }

  std::shared_ptr<CVmManager> manager = MakeManager(4096, 100);
  CImage image;
};

}  // namespace korin::test
