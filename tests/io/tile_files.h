#pragma once

#include <fitsio.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

namespace korin::test {

// An image of one plane in compressed tiles.
struct Tiles {
  int method;
  int bitpix;
  long width;  // of the image and of its tiles
  long tileHeight;
  float quantizeLevel = 0.0F;  // 0: without loss
};

// `type`: the library's name of T; for floats `missing` marks missing values.
template <typename T>
void WriteTiles(const std::filesystem::path& path, const Tiles& tiles, int type,
                std::vector<T> values, T missing = {}) {
  fitsfile* file = nullptr;
  int status = 0;
  const auto count = static_cast<LONGLONG>(values.size());
  long axes[] = {tiles.width, static_cast<long>(count) / tiles.width};
  long tile[] = {tiles.width, tiles.tileHeight};
  fits_create_diskfile(&file, path.string().c_str(), &status);
  fits_set_compression_type(file, tiles.method, &status);
  fits_set_tile_dim(file, 2, tile, &status);
  if (tiles.bitpix == FLOAT_IMG) fits_set_quantize_level(file, tiles.quantizeLevel, &status);
  fits_create_img(file, tiles.bitpix, 2, axes, &status);
  fits_write_key_str(file, "OBJECT", "M 13", "name", &status);
  if (missing == T{}) {
    fits_write_img(file, type, 1, count, values.data(), &status);
  } else {
    fits_write_imgnull(file, type, 1, count, values.data(), &missing, &status);
  }
  fits_close_file(file, &status);
  ASSERT_EQ(status, 0);
}

}  // namespace korin::test
