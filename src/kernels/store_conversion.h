#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "kernels/element.h"
#include "korinimage/progress.h"
#include "korinimage/vm_image.h"

namespace korin {

// Adjacent rows of one source plane and the rows that they become.
struct RowsToConvert {
  const BYTE* source = nullptr;
  BYTE* destination = nullptr;
  std::int64_t width = 0;  // pixels
  std::int64_t lines = 0;
  std::int64_t sourceStride = 0;  // pixels from one row to the next
  std::int64_t destinationStride = 0;
  std::int64_t plane = 0;
};

// Converts rows; false when it could not. Called on the kernels' threads too.
using RowConversion = std::function<bool(const RowsToConvert&)>;

// The range (lowest, highest physical value) that is mapped onto the destination
// type: one for all planes, or one for each.
using ConversionRanges = std::vector<std::pair<double, double>>;

// The conversion kernels for a pair of element kinds, as row conversions. The first
// two need an integer destination and are empty for a floating one; a cast exists
// from every integer kind to both floating kinds and between these two.
RowConversion NormalizeMappingConversion(ElementKind source, ElementKind destination, double bscale,
                                         double bzero, ConversionRanges ranges);
RowConversion ShiftClampConversion(ElementKind source, ElementKind destination, double bscale,
                                   double bzero, double shift);
RowConversion StaticCastConversion(ElementKind source, ElementKind destination);

// Block by block over two stores of equal layout; progress per block. False when a
// block cannot be brought in or converted. `perPlane`: the conversion differs from
// plane to plane.
[[nodiscard]] bool ConvertBlocks(CVmImage& destination, CVmImage& source,
                                 const std::shared_ptr<Progress>& progress, bool perPlane,
                                 const RowConversion& conversion);

// Row by row over the destination's rows, whatever the two layouts; the source
// holds at least as many planes, rows and columns. Progress per row. False when a
// row cannot be converted; throws korin::CVmMemoryAllocationError when a block
// cannot be brought in.
[[nodiscard]] bool ConvertRows(CVmImage& destination, CVmImage& source,
                               const std::shared_ptr<Progress>& progress,
                               const RowConversion& conversion);

}  // namespace korin
