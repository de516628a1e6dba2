#include "exchange/dib_bitmap.h"

#include <limits>

#include "platform/checked_math.h"

namespace korin {

namespace {

constexpr std::int64_t kMaskBytes = 12;  // red, green, blue
constexpr std::size_t kMasksAt = 40;     // in every header, whatever its size

std::uint32_t Number(std::span<const BYTE> block, std::size_t at, int bytes = 4) {
  std::uint32_t value = 0;
  for (int i = bytes - 1; i >= 0; --i) value = value << 8 | block[at + static_cast<std::size_t>(i)];
  return value;
}

std::int32_t SignedNumber(std::span<const BYTE> block, std::size_t at) {
  return static_cast<std::int32_t>(Number(block, at));
}

bool GoesWith(std::uint32_t compression, int bits, bool bottomUp) {
  switch (static_cast<DibCompression>(compression)) {
    case DibCompression::None:
      return bits == 1 || bits == 4 || bits == 8 || bits == 16 || bits == 24 || bits == 32;
    case DibCompression::Rle8:
      return bits == 8 && bottomUp;
    case DibCompression::Rle4:
      return bits == 4 && bottomUp;
    case DibCompression::BitFields:
      return bits == 16 || bits == 32;
  }
  return false;
}

DibColorBits ColorBitsOf(std::uint32_t red, std::uint32_t green, std::uint32_t blue) {
  if (red == 0xF800 && green == 0x07E0 && blue == 0x001F) return DibColorBits::Rgb565;
  if (red == 0x7C00 && green == 0x03E0 && blue == 0x001F) return DibColorBits::Rgb555;
  if (red == 0x0F00 && green == 0x00F0 && blue == 0x000F) return DibColorBits::Rgb444;
  return DibColorBits::Unknown;
}

}  // namespace

std::optional<DibHeader> ReadDibHeader(std::span<const BYTE> block) {
  const auto size = static_cast<std::int64_t>(block.size());
  if (size < kDibHeaderBytes) return std::nullopt;
  const std::int64_t headerBytes = Number(block, 0);
  const std::int32_t width = SignedNumber(block, 4);
  const std::int32_t height = SignedNumber(block, 8);
  const auto bits = static_cast<int>(Number(block, 14, 2));
  const std::uint32_t compression = Number(block, kDibCompressionAt);
  const std::int64_t colorsUsed = Number(block, 32);

  if (headerBytes < kDibHeaderBytes || headerBytes > size) return std::nullopt;
  if (width < 1 || height == 0 || height == std::numeric_limits<std::int32_t>::min()) {
    return std::nullopt;
  }
  if (!GoesWith(compression, bits, height > 0)) return std::nullopt;

  DibHeader header;
  header.width = width;
  header.storedHeight = height;
  header.height = height < 0 ? -std::int64_t{height} : std::int64_t{height};
  header.bits = bits;
  header.compression = static_cast<DibCompression>(compression);
  header.stride = (bits * header.width + 31) / 32 * 4;
  header.rowBytes = (bits * header.width + 7) / 8;
  header.tableOffset = headerBytes;

  const bool masks = header.compression == DibCompression::BitFields;
  std::int64_t tableEntries = colorsUsed;
  std::int64_t maskBytes = 0;
  if (bits <= 8) {
    if (tableEntries == 0) tableEntries = std::int64_t{1} << bits;
    header.tableEntries = tableEntries;
  } else if (masks && headerBytes == kDibHeaderBytes) {
    // The masks follow a header that has no room for them. Some writers count them as
    // three colours; they are still the same twelve bytes.
    maskBytes = kMaskBytes;
    if (tableEntries == 3) tableEntries = 0;
  } else if (masks && headerBytes < kDibHeaderBytes + kMaskBytes) {
    return std::nullopt;
  }
  header.pixelOffset = headerBytes + maskBytes + tableEntries * kDibTableEntryBytes;
  if (header.pixelOffset > size) return std::nullopt;
  if (masks) {
    header.colorBits = ColorBitsOf(Number(block, kMasksAt), Number(block, kMasksAt + 4),
                                   Number(block, kMasksAt + 8));
  }
  return header;
}

std::optional<DibBitmap> DibBitmap::Open(std::span<const BYTE> block) {
  const auto header = ReadDibHeader(block);
  if (!header || header->IsRunLength()) return std::nullopt;
  const auto fullRows = CheckedMul(header->stride, header->height - 1);
  if (!fullRows) return std::nullopt;
  const auto end = CheckedAdd(*fullRows, header->pixelOffset + header->rowBytes);
  if (!end || *end > static_cast<std::int64_t>(block.size())) return std::nullopt;
  return DibBitmap(*header, block.data());
}

const BYTE* DibBitmap::Row(std::int64_t y) const {
  const std::int64_t stored = m_header.storedHeight > 0 ? m_header.height - 1 - y : y;
  return m_block + m_header.pixelOffset + stored * m_header.stride;
}

const BYTE* DibBitmap::TableEntry(std::int64_t index) const {
  return m_block + m_header.tableOffset + index * kDibTableEntryBytes;
}

}  // namespace korin
