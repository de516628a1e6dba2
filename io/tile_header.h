#pragma once

#include <cstdint>
#include <filesystem>

namespace korin {

// Looks at the cards of the unit that starts at byte `start` before the FITS
// library does: merely opening a tile-compressed image divides by its tile sizes
// and fills tables of six axes. Throws FileError for values that it cannot take;
// whatever else is wrong with the unit is left to the library.
void CheckTileHeader(const std::filesystem::path& file, std::int64_t start);

}  // namespace korin
