#pragma once

#include <png.h>

#include <cstdint>

#include "output_file.h"

namespace korin {

// A PNG picture written row by row into an output file. libpng reports errors by
// long jumps, which must not pass a C++ object: every call here that may jump is a
// function of its own without any.
class PngStream {
 public:
  // Grey (channels 1) or RGB (3) with 8 or 16 bits a sample. Throws FileError.
  PngStream(OutputFile& output, std::uint32_t width, std::uint32_t height, int channels, int bits);
  PngStream(const PngStream&) = delete;
  PngStream& operator=(const PngStream&) = delete;
  ~PngStream();

  // Samples of one row, channels side by side, 16-bit ones big-endian.
  void WriteRow(const std::uint8_t* samples);
  void End();

 private:
  bool Begin(std::uint32_t width, std::uint32_t height, int channels, int bits) noexcept;
  bool TryRow(const std::uint8_t* samples) noexcept;
  bool TryEnd() noexcept;
  [[noreturn]] void Fail() const;

  OutputFile& m_output;
  png_structp m_png = nullptr;
  png_infop m_info = nullptr;
  bool m_refused = false;  // by the medium rather than by libpng
};

}  // namespace korin
