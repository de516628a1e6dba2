#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "korinimage/types.h"

// Packed bitmaps as they lie in a global-memory block: a header, a colour table or
// three colour masks, then rows padded to 32 bits. All numbers are little endian.
// Whatever the header claims is checked here against the bytes that are there, so
// that the rest of the room may read without looking.
namespace korin {

inline constexpr std::int64_t kDibHeaderBytes = 40;  // the smallest header understood
inline constexpr std::int64_t kDibTableEntryBytes = 4;

// Offsets within the header.
inline constexpr std::size_t kDibCompressionAt = 16;
inline constexpr std::size_t kDibImageBytesAt = 20;

enum class DibCompression : std::uint32_t { None = 0, Rle8 = 1, Rle4 = 2, BitFields = 3 };

// How 16-bit pixels divide into colours.
enum class DibColorBits { Rgb555, Rgb565, Rgb444, Unknown };

// A header whose fields agree with each other, and whose tables lie in the block.
struct DibHeader {
  std::int64_t width = 0;         // pixels, >= 1
  std::int64_t height = 0;        // rows, >= 1
  std::int32_t storedHeight = 0;  // as in the header: negative when the top row comes first
  int bits = 0;                   // per pixel: 1, 4, 8, 16, 24 or 32
  DibCompression compression = DibCompression::None;
  DibColorBits colorBits = DibColorBits::Rgb555;  // of 16-bit pixels
  std::int64_t tableOffset = 0;                   // colour table, from the start of the block
  std::int64_t tableEntries = 0;                  // 0 for 16 bits and more
  std::int64_t pixelOffset = 0;                   // <= size of the block
  std::int64_t stride = 0;                        // bytes from one uncompressed row to the next
  std::int64_t rowBytes = 0;                      // of these, bytes that hold pixels

  bool IsRunLength() const {
    return compression == DibCompression::Rle8 || compression == DibCompression::Rle4;
  }
};

// Empty when the block cannot be a bitmap of a supported kind: a header below 40
// bytes, sizes that are no sizes, a depth or compression that is not understood or
// does not go with the other, masks or a table that are not all there.
std::optional<DibHeader> ReadDibHeader(std::span<const BYTE> block);

// An uncompressed bitmap all of whose rows lie in the block. Refers to the bytes of
// the block, which must outlive it.
class DibBitmap {
 public:
  // Empty for a header that ReadDibHeader refuses, a run-length encoded bitmap and
  // rows that do not fit the block. The last row need not be padded.
  static std::optional<DibBitmap> Open(std::span<const BYTE> block);

  const DibHeader& Header() const { return m_header; }
  // Row y of the image, 0 at the top; Header().rowBytes bytes.
  const BYTE* Row(std::int64_t y) const;
  // Four bytes: blue, green, red, unused. 0 <= index < Header().tableEntries.
  const BYTE* TableEntry(std::int64_t index) const;

 private:
  DibBitmap(const DibHeader& header, const BYTE* block) : m_header(header), m_block(block) {}

  DibHeader m_header;
  const BYTE* m_block;
};

}  // namespace korin
