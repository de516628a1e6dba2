#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "korinimage/header.h"
#include "korinimage/image.h"
#include "korinimage/io/export.h"
#include "korinimage/progress.h"
#include "korinimage/vm_manager.h"

// FITS files in and out.
//
// Pixels. Stored values are kept as they stand in the file; BSCALE and BZERO become
// attributes of the image. The conventions for unsigned integers (BSCALE 1 and
// BZERO 32768 for 16 bits, 2147483648 for 32 bits) give an unsigned image with
// BZERO 0, and are written back for one. Signed bytes (8 bits, BZERO -128) keep
// their BZERO. NaN and infinities pass unchanged.
//
// Shape. Two axes of pixels and at most one more, the planes; axes of length 1
// beyond the second do not count. Row 0 of the image is the first row of the file,
// which FITS displays show at the bottom: whoever draws an image turns it over.
//
// Header. All cards of the image go to its CHeader in their order, blank-padded to
// 80 columns, END left out. For a tile-compressed image these are the cards of the
// image, not of the table that holds it. Numbers that shape the image are read by
// the FITS library, never through CHeader's getters.
//
// Thread rule: different files may be read and written by different threads at once.
namespace korin {

struct FitsOptions {
  static constexpr int kFirstImage = -1;
  int hdu = kFirstImage;  // 0: the primary one, n: the n-th extension
};

// What a FITS file says about one image, without its pixels.
struct FitsDescription {
  int hdu = 0;  // where the image was found: 0 primary, n: n-th extension
  bool tileCompressed = false;
  CImage::DataType type = CImage::DataTypeUnknown;
  bool isSigned = true;  // false: an unsigned convention, its offset taken out of bzero
  std::int64_t width = 0;
  std::int64_t height = 0;
  std::int64_t planes = 0;
  double bscale = 1.0;
  double bzero = 0.0;
  CHeader header;

  std::int64_t BytesPerLine() const { return width * (type < 0 ? -type : type) / 8; }
};

// Reads and checks the structure of an image only. Throws korin::FileError for a
// file that cannot be read, is damaged, holds no image or one of another shape or
// type, and for pixels that the file is too short to hold.
KORINIMAGE_IO_API FitsDescription DescribeFits(const std::filesystem::path& file,
                                               const FitsOptions& options = {});

// Reads an image into a new store of the manager, a few rows at a time; the sink
// hears of the rows. Nothing large is allocated before the structure is checked
// against the file. Throws korin::FileError as above and for damaged pixels;
// korin::CVmMemoryAllocationError when the store, or one block of it, finds no room.
KORINIMAGE_IO_API std::unique_ptr<CImage> LoadFits(const std::shared_ptr<CVmManager>& manager,
                                                   const std::filesystem::path& file,
                                                   const FitsOptions& options = {},
                                                   const std::shared_ptr<Progress>& progress = {});

// Writes an image as the primary one of a new file, which replaces `file` only when
// it is complete: on any failure, a throwing sink included, nothing is left. Cards
// keep their order; those that describe the structure and scaling are written anew,
// and checksums, which would no longer hold, are left out. The pixels are read
// only. Throws korin::FileError; korin::CVmMemoryAllocationError when a block finds
// no room; korin::CVmManagerHandleDeletedError for an image without pixels.
KORINIMAGE_IO_API void SaveFits(CImage& image, const std::filesystem::path& file,
                                const std::shared_ptr<Progress>& progress = {});

}  // namespace korin
