#pragma once

#include <array>
#include <cstdint>

#include "exchange/dib_bitmap.h"

namespace korin {

// True when any entry of the colour table, or without a table any pixel, is no grey.
// 16-bit pixels are taken as 5-5-5 here, whatever their masks say.
bool HasColor(const DibBitmap& bitmap);

enum class DibChannel { Red, Green, Blue, Grey };

// Reads one channel of a bitmap's rows as bytes. Indexes without a table entry, and
// 16-bit pixels under masks that are not understood, read as 0. Low bits are not
// replicated: the brightest 5-bit level is 248. Grey is the table's red byte, the
// first byte of 24- and 32-bit pixels, and bits 1 to 5 of 16-bit pixels.
// Thread rule: any number of threads may read at once.
class DibChannelReader {
 public:
  DibChannelReader(const DibBitmap& bitmap, DibChannel channel);

  // Writes Header().width bytes.
  void ReadRow(const BYTE* row, BYTE* out) const;

 private:
  int m_bits;
  std::int64_t m_width;
  std::int64_t m_byte = 0;          // 24 and 32 bits: which byte of the pixel
  unsigned m_shift = 0;             // 16 bits: pixel << 4 >> shift & mask
  unsigned m_mask = 0;              //
  std::array<BYTE, 256> m_table{};  // 1 to 8 bits
};

}  // namespace korin
