#include "kernels/store_conversion.h"

#include <algorithm>
#include <atomic>
#include <type_traits>

#include "kernels/block_driver.h"
#include "kernels/kernel_calls.h"
#include "kernels/row_batch.h"
#include "korinimage/scoped_progress.h"

namespace korin {
namespace {

template <typename T>
const T* Source(const RowsToConvert& rows) {
  return reinterpret_cast<const T*>(rows.source);
}
template <typename T>
T* Destination(const RowsToConvert& rows) {
  return reinterpret_cast<T*>(rows.destination);
}

// Calls f.template operator()<S, D>() for an integer destination.
template <typename F>
RowConversion DispatchToInteger(ElementKind source, ElementKind destination, F&& f) {
  return DispatchElement(source, [&]<typename S>(std::type_identity<S>) {
    return DispatchElement(destination, [&]<typename D>(std::type_identity<D>) -> RowConversion {
      if constexpr (std::is_integral_v<D>) {
        return f.template operator()<S, D>();
      } else {
        return {};
      }
    });
  });
}

// Rows of one plane that are adjacent in both stores.
struct Stretch {
  const BYTE* source;
  BYTE* destination;
  std::int64_t lines;
};

void CutIntoStretches(const RowBatch& from, const RowBatch& to, std::int64_t y, std::int64_t end,
                      std::int64_t bytesPerLine, std::vector<Stretch>& stretches) {
  stretches.clear();
  auto source = from.Segments().begin();
  auto destination = to.Segments().begin();
  while (y < end) {
    while (source->y + source->lines <= y) ++source;
    while (destination->y + destination->lines <= y) ++destination;
    const std::int64_t stop =
        std::min({end, source->y + source->lines, destination->y + destination->lines,
                  y + RowPieces(end - y, bytesPerLine).rowsPerPiece});
    stretches.push_back({from.Row(y), to.Row(y), stop - y});
    y = stop;
  }
}

}  // namespace

RowConversion NormalizeMappingConversion(ElementKind source, ElementKind destination, double bscale,
                                         double bzero, ConversionRanges ranges) {
  return DispatchToInteger(source, destination, [&]<typename S, typename D>() -> RowConversion {
    return [bscale, bzero, ranges](const RowsToConvert& rows) {
      const auto last = static_cast<std::int64_t>(ranges.size()) - 1;
      const auto [minimum, maximum] = ranges[static_cast<std::size_t>(std::min(rows.plane, last))];
      return kernels::NormalizeMapping(Source<S>(rows), Destination<D>(rows), rows.width,
                                       rows.lines, rows.sourceStride, rows.destinationStride,
                                       bscale, bzero, minimum, maximum);
    };
  });
}

RowConversion ShiftClampConversion(ElementKind source, ElementKind destination, double bscale,
                                   double bzero, double shift) {
  return DispatchToInteger(source, destination, [&]<typename S, typename D>() -> RowConversion {
    return [bscale, bzero, shift](const RowsToConvert& rows) {
      return kernels::ShiftClamp(Source<S>(rows), Destination<D>(rows), rows.width, rows.lines,
                                 rows.sourceStride, rows.destinationStride, bscale, bzero, shift);
    };
  });
}

RowConversion StaticCastConversion(ElementKind source, ElementKind destination) {
  return DispatchElement(source, [&]<typename S>(std::type_identity<S>) {
    return DispatchElement(destination, []<typename D>(std::type_identity<D>) -> RowConversion {
      if constexpr (std::is_floating_point_v<D> && !std::is_same_v<S, D>) {
        return [](const RowsToConvert& rows) {
          return kernels::StaticCast(Source<S>(rows), Destination<D>(rows), rows.width, rows.lines,
                                     rows.sourceStride, rows.destinationStride);
        };
      } else {
        return {};
      }
    });
  });
}

bool ConvertBlocks(CVmImage& destination, CVmImage& source,
                   const std::shared_ptr<Progress>& progress, bool perPlane,
                   const RowConversion& conversion) {
  ScopedProgress steps(progress, source.GetBlockCount());
  return RunBlockDriver(destination, source, steps, perPlane, [&](const BlockPiece& piece) {
    return conversion({piece.source, piece.destination, piece.width, piece.lines, piece.width,
                       piece.width, piece.plane});
  });
}

bool ConvertRows(CVmImage& destination, CVmImage& source, const std::shared_ptr<Progress>& progress,
                 const RowConversion& conversion) {
  const std::int64_t height = destination.GetHeight();
  ImageRowsScopedProgress steps(progress, destination.GetPlanes(), height);
  if (destination.GetWidth() < 1) return true;
  std::vector<Stretch> stretches;
  std::atomic<bool> converted{true};
  for (std::int64_t plane = 0; plane < destination.GetPlanes(); ++plane) {
    for (std::int64_t y = 0; y < height;) {
      const RowBatch from(source, plane, y, height - y, BlockIntent::Read, true, 2);
      const RowBatch to(destination, plane, y, from.RowCount(), BlockIntent::Overwrite, false, 2);
      const std::int64_t end = y + to.RowCount();
      for (std::int64_t row = y; row < end; ++row) steps.Row(plane, row);
      CutIntoStretches(from, to, y, end, source.GetBytesPerLine(), stretches);
      ParallelFor(static_cast<std::int64_t>(stretches.size()), [&](std::int64_t i) {
        const Stretch& stretch = stretches[static_cast<std::size_t>(i)];
        if (!conversion({stretch.source, stretch.destination, destination.GetWidth(), stretch.lines,
                         source.GetWidth(), destination.GetWidth(), plane})) {
          converted = false;
        }
      });
      if (!converted) return false;
      y = end;
    }
  }
  return true;
}

}  // namespace korin
