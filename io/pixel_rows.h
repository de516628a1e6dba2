#pragma once

#include <cstdint>
#include <functional>

#include "korinimage/image.h"

namespace korin {

// Rows that one step of a file operation moves: enough to be fast, few enough that
// progress is heard and a cancel is answered.
std::int64_t RowsPerStep(std::int64_t bytesPerLine);

// Calls `take` for every run of rows [y, y + rows) of a plane that lies side by
// side in one block, first to last, in pieces of at most `step` rows: take(first
// byte, first row, rows). The block stays in memory during the call.
//
// Throws CVmMemoryAllocationError, saying what is short of what, when a block finds
// no room; CVmManagerHandleDeletedError for an image without pixels.
void ForRowRuns(CImage& image, std::int64_t plane, std::int64_t y, std::int64_t rows,
                std::int64_t step, BlockIntent intent,
                const std::function<void(BYTE*, std::int64_t, std::int64_t)>& take);

// Throws unless the image has pixels that its type and size still describe.
void RequirePixels(CImage& image);

// Calls fn with a value of the C++ type of the image's pixels; false for an unknown
// type, fn not called.
template <typename Function>
bool WithPixelType(CImage::DataType type, bool isSigned, Function&& fn) {
  switch (type) {
    case CImage::DataTypeInt8:
      fn(std::uint8_t{});
      return true;
    case CImage::DataTypeInt16:
      isSigned ? fn(std::int16_t{}) : fn(std::uint16_t{});
      return true;
    case CImage::DataTypeInt32:
      isSigned ? fn(std::int32_t{}) : fn(std::uint32_t{});
      return true;
    case CImage::DataTypeFloat:
      fn(float{});
      return true;
    case CImage::DataTypeDouble:
      fn(double{});
      return true;
    default:
      return false;
  }
}

}  // namespace korin
