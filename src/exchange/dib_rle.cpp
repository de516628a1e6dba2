#include "exchange/dib_rle.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <optional>

#include "exchange/dib_bitmap.h"
#include "exchange/dib_handle.h"
#include "platform/checked_math.h"

namespace korin {

namespace {

// Codes after a zero byte; from 3 on the byte is a count of pixels that follow as
// they are.
constexpr unsigned kEndOfLine = 0;
constexpr unsigned kEndOfBitmap = 1;
constexpr unsigned kDelta = 2;

// The next pixel to be written, and the rows it is written to.
class RleCanvas {
 public:
  RleCanvas(int bits, std::int64_t width, std::int64_t height, std::int64_t stride,
            std::span<BYTE> pixels)
      : m_bits(bits), m_width(width), m_height(height), m_stride(stride), m_pixels(pixels.data()) {}

  bool IsFull() const { return m_y >= m_height; }

  void NextLine() {
    m_x = 0;
    ++m_y;
  }

  void Move(std::int64_t right, std::int64_t up) {
    m_x += right;
    m_y += up;
  }

  // `count` pixels of `value`: in 4 bits, its high and its low half by turns.
  void Run(std::int64_t count, BYTE value) {
    const std::int64_t drawn = Visible(count);
    if (m_bits == 8) {
      if (drawn > 0) std::memset(Line() + m_x, value, static_cast<std::size_t>(drawn));
    } else {
      for (std::int64_t i = 0; i < drawn; ++i) PutNibble(m_x + i, i % 2 == 0 ? value >> 4 : value);
    }
    m_x += count;
  }

  // `count` pixels as they stand in `values`, which may hold fewer.
  void Copy(std::int64_t count, std::span<const BYTE> values) {
    const auto there = static_cast<std::int64_t>(values.size()) * (8 / m_bits);
    const std::int64_t drawn = Visible(std::min(count, there));
    if (m_bits == 8) {
      if (drawn > 0) std::memcpy(Line() + m_x, values.data(), static_cast<std::size_t>(drawn));
    } else {
      for (std::int64_t i = 0; i < drawn; ++i) {
        const BYTE pair = values[static_cast<std::size_t>(i / 2)];
        PutNibble(m_x + i, i % 2 == 0 ? pair >> 4 : pair);
      }
    }
    m_x += count;
  }

 private:
  std::int64_t Visible(std::int64_t count) const {
    return IsFull() ? 0 : std::clamp<std::int64_t>(m_width - m_x, 0, count);
  }
  BYTE* Line() const { return m_pixels + m_y * m_stride; }

  void PutNibble(std::int64_t x, int value) {
    BYTE& pair = Line()[x / 2];
    const int nibble = value & 0xF;
    pair = static_cast<BYTE>(x % 2 == 0 ? (pair & 0x0F) | nibble << 4 : (pair & 0xF0) | nibble);
  }

  int m_bits;
  std::int64_t m_width;
  std::int64_t m_height;
  std::int64_t m_stride;
  BYTE* m_pixels;
  std::int64_t m_x = 0;
  std::int64_t m_y = 0;  // 0: the bottom row
};

bool ClaimsRunLength(std::span<const BYTE> block) {
  if (static_cast<std::int64_t>(block.size()) < kDibHeaderBytes) return false;
  const BYTE* const field = block.data() + kDibCompressionAt;
  return (field[0] == 1 || field[0] == 2) && field[1] == 0 && field[2] == 0 && field[3] == 0;
}

// Size of the expanded block; empty when its pixels could not be described by the
// header's 32-bit size field.
std::optional<std::int64_t> ExpandedBytes(const DibHeader& header) {
  const auto pixels = CheckedMul(header.stride, header.height);
  if (!pixels || *pixels > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
  return header.pixelOffset + *pixels;
}

void PutNumber(std::span<BYTE> block, std::size_t at, std::uint32_t value) {
  for (std::size_t i = 0; i < 4; ++i) block[at + i] = static_cast<BYTE>(value >> 8 * i);
}

}  // namespace

void ExpandRle(std::span<const BYTE> codes, int bits, std::int64_t width, std::int64_t height,
               std::int64_t stride, std::span<BYTE> pixels) {
  RleCanvas canvas(bits, width, height, stride, pixels);
  std::size_t at = 0;
  while (!canvas.IsFull() && codes.size() - at >= 2) {
    const BYTE count = codes[at];
    const BYTE value = codes[at + 1];
    at += 2;
    if (count > 0) {
      canvas.Run(count, value);
    } else if (value == kEndOfLine) {
      canvas.NextLine();
    } else if (value == kEndOfBitmap) {
      return;
    } else if (value == kDelta) {
      if (codes.size() - at < 2) return;
      canvas.Move(codes[at], codes[at + 1]);
      at += 2;
    } else {
      const std::size_t bytes = bits == 8 ? value : (value + 1u) / 2;
      const std::size_t there = std::min(bytes, codes.size() - at);
      canvas.Copy(value, codes.subspan(at, there));
      // Such runs fill whole 16-bit words.
      at = std::min(at + bytes + bytes % 2, codes.size());
    }
  }
}

int DecordRle(HDIB* dib) noexcept {
  if (dib == nullptr || *dib == nullptr) return 0;
  DibHandle expanded(nullptr);
  {
    const DibLock source(*dib);
    const std::span<const BYTE> block = source.Bytes();
    if (block.empty()) return 0;
    if (!ClaimsRunLength(block)) return 1;
    const auto header = ReadDibHeader(block);
    if (!header) return 0;
    const auto size = ExpandedBytes(*header);
    if (!size) return 0;
    *expanded.InPlace() = AllocGlobalMemory(*size);
    const DibLock destination(expanded.Get());
    const std::span<BYTE> out = destination.Bytes();
    if (out.empty()) return 0;
    const auto pixelOffset = static_cast<std::size_t>(header->pixelOffset);
    std::memcpy(out.data(), block.data(), pixelOffset);
    PutNumber(out, kDibCompressionAt, static_cast<std::uint32_t>(DibCompression::None));
    PutNumber(out, kDibImageBytesAt, static_cast<std::uint32_t>(*size - header->pixelOffset));
    ExpandRle(block.subspan(pixelOffset), header->bits, header->width, header->height,
              header->stride, out.subspan(pixelOffset));
  }
  FreeGlobalMemory(*dib);
  *dib = expanded.Release();
  return 1;
}

}  // namespace korin
