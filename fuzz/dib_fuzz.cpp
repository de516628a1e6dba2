// Packed bitmaps from anybody: the run-length expander beside a plain model of it,
// the parser and the pixel readers, and the whole way into an image.
#include <algorithm>
#include <cstring>
#include <memory>
#include <span>
#include <vector>

#include "exchange/dib_bitmap.h"
#include "exchange/dib_handle.h"
#include "exchange/dib_pixels.h"
#include "exchange/dib_rle.h"
#include "fuzz_input.h"
#include "korinimage/image.h"
#include "support/memory_config.h"
#include "vm/manager_impl.h"

using korin::fuzz::Require;

namespace {

using Bytes = std::vector<BYTE>;

// Claims of more pixels than this are only parsed: allocating them teaches nothing.
constexpr std::int64_t kMostPixels = 1 << 12;

// One index for each pixel, bottom row first, told as simply as possible.
Bytes ExpandPlainly(std::span<const BYTE> codes, int bits, std::int64_t width,
                    std::int64_t height) {
  Bytes pixels(static_cast<std::size_t>(width * height));
  std::int64_t x = 0, y = 0;
  const auto put = [&](int index) {
    if (x < width && y < height) pixels[static_cast<std::size_t>(y * width + x)] = BYTE(index);
    ++x;
  };
  const auto part = [&](BYTE value, int i) {
    return bits == 8 ? value : i % 2 == 0 ? value >> 4 : value & 15;
  };
  for (std::size_t at = 0; at + 1 < codes.size();) {
    const int count = codes[at], value = codes[at + 1];
    at += 2;
    if (count > 0) {
      for (int i = 0; i < count; ++i) put(part(BYTE(value), i));
    } else if (value == 0) {
      x = 0;
      ++y;
    } else if (value == 1) {
      break;
    } else if (value == 2) {
      if (at + 1 >= codes.size()) break;
      x += codes[at];
      y += codes[at + 1];
      at += 2;
    } else {
      std::size_t taken = 0;
      for (int i = 0; i < value; ++i) {
        taken = static_cast<std::size_t>(bits == 8 ? i : i / 2);
        if (at + taken < codes.size()) put(part(codes[at + taken], i));
      }
      at += (taken + 2) / 2 * 2;
    }
  }
  return pixels;
}

void Expand(std::span<const BYTE> codes, const korin::DibHeader& header) {
  const Bytes plain = ExpandPlainly(codes, header.bits, header.width, header.height);
  Bytes packed(static_cast<std::size_t>(header.stride * header.height));
  korin::ExpandRle(codes, header.bits, header.width, header.height, header.stride, packed);
  for (std::int64_t i = 0; i < header.width * header.height; ++i) {
    const std::int64_t x = i % header.width, y = i / header.width;
    const BYTE byte = packed[static_cast<std::size_t>(y * header.stride + x * header.bits / 8)];
    const int index = header.bits == 8 ? byte : x % 2 == 0 ? byte >> 4 : byte & 15;
    Require(index == plain[static_cast<std::size_t>(i)], "the expander does what the codes say");
  }
}

void Attach(std::span<const BYTE> block, bool expected) {
  static const std::shared_ptr<CVmManager> manager = [] {
    auto configuration = CVmManagerConfiguration::DefaultConfiguration();
    configuration->BlockSize = 1 << 18;
    korin::vm::ManagerSeams seams;
    seams.budgetBytes = 8 << 18;
    seams.diskLimitBlocks = 8;
    return std::make_shared<CVmManagerImpl>(std::move(configuration), std::move(seams));
  }();
  const korin::DibHandle dib(korin::AllocGlobalMemory(static_cast<std::int64_t>(block.size())));
  if (const korin::DibLock lock(dib.Get()); !lock.Bytes().empty()) {
    std::memcpy(lock.Bytes().data(), block.data(), block.size());
  }
  CImage image;
  const bool attached = image.AttachDIB(manager, dib.Get(), CImage::ProgressPtr());
  Require(attached == expected, "what can be read can be attached");
  Require(attached != image.IsEmpty(), "a refused bitmap leaves the image");
  const korin::DibLock after(dib.Get());
  Require(after.Bytes().empty() || std::equal(block.begin(), block.end(), after.Bytes().begin()),
          "the caller's bytes stay");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const korin::test::ScopedMemoryConfig settings;
  const std::span<const BYTE> block(data, size);
  const auto header = korin::ReadDibHeader(block);
  if (header && header->width * header->height > kMostPixels) {
    Require(header->IsRunLength() || !korin::DibBitmap::Open(block) ||
                static_cast<std::int64_t>(size) >= kMostPixels / 8,
            "no more pixels than there are bytes for");
    return 0;
  }
  const auto bitmap = korin::DibBitmap::Open(block);
  if (header && header->IsRunLength()) {
    Expand(block.subspan(static_cast<std::size_t>(header->pixelOffset)), *header);
  }
  if (bitmap) {
    Bytes row(static_cast<std::size_t>(header->width));
    korin::HasColor(*bitmap);
    for (const auto channel : {korin::DibChannel::Red, korin::DibChannel::Grey}) {
      const korin::DibChannelReader reader(*bitmap, channel);
      for (std::int64_t y = 0; y < header->height; ++y) reader.ReadRow(bitmap->Row(y), row.data());
    }
  }
  Attach(block, bitmap || (header && header->IsRunLength()));
  return 0;
}
