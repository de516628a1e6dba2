#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
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

// The rows of one plane that are going to be converted.
struct PlaneToConvert {
  std::int64_t plane = 0;
  std::int64_t width = 0;
  std::int64_t lines = 0;
};

// How rows are converted. Copies share what was prepared: one of them is used at a
// time.
class RowConversion {
 public:
  using Convert = std::function<bool(const RowsToConvert&)>;
  using Prepare = std::function<void(const PlaneToConvert&)>;

  RowConversion() = default;
  // `convert` returns false when it could not; it is called on any thread. `prepare`
  // is called between conversions, on the thread that drives them, before the rows
  // of a plane come.
  template <typename F>
  requires std::is_invocable_r_v<bool, F, const RowsToConvert&> RowConversion(F convert,
                                                                              Prepare prepare = {})
      : m_convert(std::move(convert)), m_prepare(std::move(prepare)) {}

  explicit operator bool() const { return static_cast<bool>(m_convert); }
  bool operator()(const RowsToConvert& rows) const { return m_convert(rows); }
  void PrepareFor(const PlaneToConvert& plane) const {
    if (m_prepare) m_prepare(plane);
  }

 private:
  Convert m_convert;
  Prepare m_prepare;
};

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
