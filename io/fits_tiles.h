#pragma once

#include <fitsio.h>

#include <cstdint>
#include <filesystem>
#include <vector>

#include "korinimage/io/fits_file.h"

// Tile-compressed images are decoded by the FITS library, which trusts what a
// compressed stream says about its own length and shape. These checks come first,
// so that no stream makes it read or write outside its buffers.
namespace korin {

// Checks the table that holds the tiles: geometry, sizes, settings of the method.
// `axes`: the image's axes as declared. True when floating-point pixels are stored
// as scaled integers. Throws FileError.
bool CheckTileTable(fitsfile* file, const std::filesystem::path& name, std::int64_t fileSize,
                    const FitsDescription& image, const std::vector<LONGLONG>& axes);

// Checks the compressed stream of every tile. Throws FileError. Returns how many bytes
// of memory the decoder will take for granted.
std::int64_t CheckTileStreams(fitsfile* file, const std::filesystem::path& name,
                              std::int64_t fileSize, const FitsDescription& image,
                              const std::vector<LONGLONG>& axes);

}  // namespace korin
