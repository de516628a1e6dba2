#pragma once

#include <fitsio.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "korinimage/io/fits_file.h"

namespace korin {

// One image of a FITS file, opened for reading stored values. The constructor finds
// the image and checks what its header declares against the file itself.
class FitsInput {
 public:
  // Throws FileError.
  FitsInput(const std::filesystem::path& file, const FitsOptions& options);

  const FitsDescription& Description() const { return m_description; }
  // Checks that decoding the tiles of a compressed image is safe; nothing for a
  // plain one. To be called before ReadPixels. Throws FileError.
  void CheckTiles();
  // Reads stored values, counted over the whole image from 0, in the byte order of
  // the machine; unsigned images come with their offset applied. Throws FileError.
  void ReadPixels(std::int64_t first, std::int64_t count, void* into);

 private:
  struct Closer {
    void operator()(fitsfile* file) const noexcept;
  };

  void Open(const std::filesystem::path& file);
  void FindImage(int hdu);
  bool GoTo(int unit);
  bool IsImageHere();
  void ReadShape();
  void ReadScaling();
  void ReadCards();
  void ReadPlain(std::int64_t first, std::int64_t count, void* into);
  void ReadTiles(std::int64_t first, std::int64_t count, void* into);
  template <bool kSwap>
  void Finish(std::int64_t count, void* pixels) const;
  double ReadNumber(const char* keyword, double fallback);
  // Throws when CFITSIO reported an error, with its words.
  void Check(int status, const std::string& doing) const;

  std::filesystem::path m_name;
  std::int64_t m_fileSize = 0;
  std::int64_t m_dataStart = 0;
  std::unique_ptr<fitsfile, Closer> m_file;
  std::ifstream m_plain;  // the same file, for plain pixels
  std::vector<LONGLONG> m_axes;
  FitsDescription m_description;
  std::vector<char> m_spare;  // memory that CFITSIO takes for granted when it decodes
  bool m_quantized = false;   // floating-point tiles stored as scaled integers
};

}  // namespace korin
