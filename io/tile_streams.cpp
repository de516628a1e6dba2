#include "tile_streams.h"

#include <fitsio.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <bit>
#include <limits>
#include <vector>

namespace korin {

namespace {

// Reads bits, most significant first, and knows where the stream ends.
class BitReader {
 public:
  explicit BitReader(Bytes stream)
      : m_stream(stream), m_end(static_cast<std::int64_t>(stream.size()) * 8) {}

  bool Skip(std::int64_t bits) {
    m_position += bits;
    return m_position <= m_end;
  }

  // -1 at the end of the stream.
  int Take(int bits) {
    if (m_position + bits > m_end) return -1;
    int value = 0;
    for (int i = 0; i < bits; ++i, ++m_position) value = value * 2 + Bit(m_position);
    return value;
  }

  // Skips zeros and the one behind them; false when there is none.
  bool SkipUnary() {
    while (m_position < m_end) {
      const auto rest = static_cast<unsigned>(m_stream[static_cast<std::size_t>(m_position / 8)] &
                                              (0xFFU >> (m_position % 8)));
      if (rest != 0) {
        m_position = m_position / 8 * 8 + (8 - std::bit_width(rest)) + 1;
        return true;
      }
      m_position = m_position / 8 * 8 + 8;
    }
    return false;
  }

 private:
  int Bit(std::int64_t position) const {
    return (m_stream[static_cast<std::size_t>(position / 8)] >> (7 - position % 8)) & 1;
  }

  Bytes m_stream;
  std::int64_t m_end;
  std::int64_t m_position = 0;
};

std::int64_t BigEndian32(Bytes stream, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; ++i) value = value << 8U | stream[at + i];
  return static_cast<std::int32_t>(value);
}

int Word16(Bytes stream, std::int64_t index) {
  const auto at = static_cast<std::size_t>(index) * 2;
  return static_cast<std::int16_t>(static_cast<std::uint16_t>(stream[at] << 8U | stream[at + 1]));
}

}  // namespace

bool RiceStreamHolds(Bytes stream, std::int64_t pixels, int bytesPixel, std::int64_t group) {
  if (group < 1 || (bytesPixel != 1 && bytesPixel != 2 && bytesPixel != 4)) return false;
  const int splitBits = bytesPixel == 1 ? 3 : bytesPixel == 2 ? 4 : 5;
  const int rawSplit = bytesPixel == 1 ? 6 : bytesPixel == 2 ? 14 : 25;  // pixels stand uncoded
  BitReader bits(stream);
  // The first pixel stands in front; the decoder then always takes one byte more.
  if (!bits.Skip(bytesPixel * 8) || static_cast<std::int64_t>(stream.size()) <= bytesPixel) {
    return false;
  }
  for (std::int64_t done = 0; done < pixels; done += group) {
    const std::int64_t count = std::min(group, pixels - done);
    const int split = bits.Take(splitBits) - 1;
    if (split < -1) return false;
    if (split == -1) continue;  // all pixels equal the one before
    if (split == rawSplit) {
      if (!bits.Skip(count * bytesPixel * 8)) return false;
      continue;
    }
    if (split > rawSplit) return false;
    for (std::int64_t i = 0; i < count; ++i) {
      if (!bits.SkipUnary() || !bits.Skip(split)) return false;
    }
  }
  return true;
}

bool PlioStreamHolds(Bytes stream) {
  const std::int64_t words = static_cast<std::int64_t>(stream.size() / 2);
  if (words < 7) return false;
  // Two layouts of the head exist; word 2 (from 0) tells which.
  const bool oldHead = Word16(stream, 2) > 0;
  const std::int64_t length =
      oldHead ? Word16(stream, 2) : std::int64_t{Word16(stream, 4)} * 32768 + Word16(stream, 3);
  const std::int64_t first = oldHead ? 3 : Word16(stream, 1);
  if (first < 0 || length < 0 || length > words) return false;
  // An instruction of type 1 takes the next word as its operand.
  return length == 0 || length < words || (Word16(stream, length - 1) & 0xF000) != 0x1000;
}

bool HcompressStreamHolds(Bytes stream, std::int64_t nx, std::int64_t ny, int smooth, bool wide) {
  constexpr std::size_t kHead = 25;  // magic, nx, ny, scale, 64-bit sum, three bit plane counts
  if (stream.size() < kHead || stream[0] != 0xDD || stream[1] != 0x99) return false;
  if (BigEndian32(stream, 2) != nx || BigEndian32(stream, 6) != ny) return false;
  const int planeLimit = wide ? 64 : 32;
  const int planes = stream[22] + 2 * stream[23] + stream[24];
  if (stream[22] > planeLimit || stream[23] > planeLimit || stream[24] > planeLimit) return false;

  // How much the decoder consumes cannot be told without decoding, so it decodes a
  // copy with room behind the stream for the longest code there is: at most 8 bits
  // a node of each quadrant's tree and bit plane, and the signs. Reading past the
  // end then either meets no end mark in the filling or makes the two fillings give
  // different pixels.
  const std::int64_t pixels = nx * ny;
  const std::int64_t nodes = ((nx + 3) / 2) * ((ny + 3) / 2);
  const auto room = static_cast<std::size_t>(nodes * planes + pixels + 65536);
  std::vector<std::uint8_t> padded(stream.size() + room);
  std::copy(stream.begin(), stream.end(), padded.begin());
  std::vector<LONGLONG> results[2];
  for (int round = 0; round < 2; ++round) {
    std::fill(padded.begin() + static_cast<std::ptrdiff_t>(stream.size()), padded.end(),
              static_cast<std::uint8_t>(round == 0 ? 0xFF : 0x00));
    std::vector<LONGLONG>& result = results[round];
    result.assign(static_cast<std::size_t>(pixels), 0);
    int columns = 0;
    int rows = 0;
    int scale = 0;
    int status = 0;
    if (wide) {
      fits_hdecompress64(padded.data(), smooth, result.data(), &columns, &rows, &scale, &status);
    } else {
      fits_hdecompress(padded.data(), smooth, reinterpret_cast<int*>(result.data()), &columns,
                       &rows, &scale, &status);
    }
    fits_clear_errmsg();
    if (status != 0) return false;
  }
  return results[0] == results[1];
}

std::int64_t GzipLength(Bytes stream, std::int64_t limit) {
  z_stream state{};
  if (inflateInit2(&state, MAX_WBITS + 16) != Z_OK) return -1;
  std::array<std::uint8_t, 65536> sink{};
  // zlib promises not to write through next_in.
  state.next_in = const_cast<Bytef*>(stream.data());
  std::size_t left = stream.size();
  std::int64_t total = 0;
  int code = Z_OK;
  while (code == Z_OK && total <= limit) {
    if (state.avail_in == 0 && left > 0) {
      state.avail_in = static_cast<uInt>(std::min<std::size_t>(left, 1U << 30U));
      left -= state.avail_in;
    }
    state.next_out = sink.data();
    state.avail_out = static_cast<uInt>(sink.size());
    code = inflate(&state, Z_NO_FLUSH);
    total += static_cast<std::int64_t>(sink.size() - state.avail_out);
  }
  inflateEnd(&state);
  return code == Z_STREAM_END && total <= limit ? total : -1;
}

}  // namespace korin
