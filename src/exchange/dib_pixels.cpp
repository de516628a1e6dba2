#include "exchange/dib_pixels.h"

#include <algorithm>

namespace korin {

namespace {

unsigned Pixel16(const BYTE* pixel) { return pixel[0] | static_cast<unsigned>(pixel[1]) << 8; }

bool IsGrey(const BYTE* blueGreenRed) {
  return blueGreenRed[0] == blueGreenRed[1] && blueGreenRed[0] == blueGreenRed[2];
}

// A whole row without an early way out is what the compiler turns into vectors.
bool RowHasColor16(const BYTE* row, std::int64_t width) {
  unsigned differing = 0;
  for (std::int64_t x = 0; x < width; ++x) {
    const unsigned pixel = Pixel16(row + 2 * x);
    differing |= (pixel ^ pixel >> 5) & 0x3FF;
  }
  return differing != 0;
}

template <int kBytes>
bool RowHasColorBytes(const BYTE* row, std::int64_t width) {
  int differing = 0;
  for (std::int64_t x = 0; x < width; ++x) {
    const BYTE* const pixel = row + kBytes * x;
    differing |= (pixel[0] ^ pixel[1]) | (pixel[0] ^ pixel[2]);
  }
  return differing != 0;
}

// The leftmost pixel is the highest part of its byte.
template <int kBits>
void LookUp(const BYTE* row, std::int64_t width, const std::array<BYTE, 256>& table, BYTE* out) {
  constexpr int kPerByte = 8 / kBits;
  constexpr unsigned kMask = (1u << kBits) - 1;
  const auto index = [](unsigned pixels, int i) {
    return pixels >> static_cast<unsigned>((kPerByte - 1 - i) * kBits) & kMask;
  };
  const std::int64_t whole = width / kPerByte;
  for (std::int64_t byte = 0; byte < whole; ++byte) {
    for (int i = 0; i < kPerByte; ++i) out[byte * kPerByte + i] = table[index(row[byte], i)];
  }
  for (std::int64_t x = whole * kPerByte; x < width; ++x) {
    out[x] = table[index(row[whole], static_cast<int>(x % kPerByte))];
  }
}

template <int kBytes>
void TakeByte(const BYTE* row, std::int64_t width, BYTE* out) {
  for (std::int64_t x = 0; x < width; ++x) out[x] = row[kBytes * x];
}

struct ShiftAndMask {
  unsigned shift;
  unsigned mask;
};

// Where a colour lies in a 16-bit pixel: (pixel << 4) >> shift brings its highest bit
// to bit 7 of the result, the mask leaves only its own bits.
ShiftAndMask Place16(DibColorBits colorBits, DibChannel channel) {
  static constexpr ShiftAndMask k555[] = {{11, 0xF8}, {6, 0xF8}, {1, 0xF8}};
  static constexpr ShiftAndMask k565[] = {{12, 0xF8}, {7, 0xFC}, {1, 0xF8}};
  static constexpr ShiftAndMask k444[] = {{8, 0xF0}, {4, 0xF0}, {0, 0xF0}};
  if (channel == DibChannel::Grey) return {2, 0xF8};
  const auto index = static_cast<std::size_t>(channel);
  switch (colorBits) {
    case DibColorBits::Rgb555:
      return k555[index];
    case DibColorBits::Rgb565:
      return k565[index];
    case DibColorBits::Rgb444:
      return k444[index];
    case DibColorBits::Unknown:
      break;
  }
  return {0, 0};
}

}  // namespace

bool HasColor(const DibBitmap& bitmap) {
  const DibHeader& header = bitmap.Header();
  if (header.bits <= 8) {
    for (std::int64_t i = 0; i < header.tableEntries; ++i) {
      if (!IsGrey(bitmap.TableEntry(i))) return true;
    }
    return false;
  }
  const auto rowHasColor = header.bits == 16   ? RowHasColor16
                           : header.bits == 24 ? RowHasColorBytes<3>
                                               : RowHasColorBytes<4>;
  for (std::int64_t y = 0; y < header.height; ++y) {
    if (rowHasColor(bitmap.Row(y), header.width)) return true;
  }
  return false;
}

DibChannelReader::DibChannelReader(const DibBitmap& bitmap, DibChannel channel)
    : m_bits(bitmap.Header().bits), m_width(bitmap.Header().width) {
  const DibHeader& header = bitmap.Header();
  if (m_bits <= 8) {
    const int byte = channel == DibChannel::Blue ? 0 : channel == DibChannel::Green ? 1 : 2;
    const std::int64_t entries = std::min<std::int64_t>(header.tableEntries, 256);
    for (std::int64_t i = 0; i < entries; ++i) {
      m_table[static_cast<std::size_t>(i)] = bitmap.TableEntry(i)[byte];
    }
  } else if (m_bits == 16) {
    const ShiftAndMask place = Place16(header.colorBits, channel);
    m_shift = place.shift;
    m_mask = place.mask;
  } else {
    m_byte = channel == DibChannel::Red ? 2 : channel == DibChannel::Green ? 1 : 0;
  }
}

void DibChannelReader::ReadRow(const BYTE* row, BYTE* out) const {
  switch (m_bits) {
    case 1:
      return LookUp<1>(row, m_width, m_table, out);
    case 4:
      return LookUp<4>(row, m_width, m_table, out);
    case 8:
      return LookUp<8>(row, m_width, m_table, out);
    case 16: {
      const unsigned shift = m_shift, mask = m_mask;
      for (std::int64_t x = 0; x < m_width; ++x) {
        out[x] = static_cast<BYTE>(Pixel16(row + 2 * x) << 4 >> shift & mask);
      }
      return;
    }
    case 24:
      return TakeByte<3>(row + m_byte, m_width, out);
    default:
      return TakeByte<4>(row + m_byte, m_width, out);
  }
}

}  // namespace korin
