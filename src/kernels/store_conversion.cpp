#include "kernels/store_conversion.h"

#include <algorithm>
#include <atomic>
#include <type_traits>

#include "kernels/block_driver.h"
#include "kernels/kernel_calls.h"
#include "kernels/row_batch.h"
#include "kernels/value_table.h"
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

// Rows from this width on take another order of additions (changebits_shift_clamp.cpp).
constexpr std::int64_t kWideRow = 64;

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

// Converts by a table of all values where that pays, else by `kernel`:
//   bool(const S*, D*, width, lines, sourceStride, destinationStride, plane)
// whose results for rows of 64 samples and more may differ from those for narrower
// ones. `tableOf(plane)`: planes with the same number convert alike.
template <typename S, typename D, typename Kernel, typename TableOf>
RowConversion ConversionByTable(Kernel kernel, TableOf tableOf) {
  const auto direct = [kernel](const RowsToConvert& rows) {
    return kernel(Source<S>(rows), Destination<D>(rows), rows.width, rows.lines, rows.sourceStride,
                  rows.destinationStride, rows.plane);
  };
  using Table = kernels::ValueTable<S, D>;
  if constexpr (!Table::kPossible) {
    return direct;
  } else {
    struct Prepared {
      std::shared_ptr<const Table> table;
      std::int64_t number = -1;
      bool wide = false;
    };
    const auto prepared = std::make_shared<Prepared>();
    return {
        [direct, prepared](const RowsToConvert& rows) {
          if (!prepared->table) return direct(rows);
          prepared->table->Convert(Source<S>(rows), Destination<D>(rows), rows.width, rows.lines,
                                   rows.sourceStride, rows.destinationStride);
          return true;
        },
        [kernel, tableOf, prepared](const PlaneToConvert& plane) {
          const bool worth = Table::IsWorth(plane.width * plane.lines);
          const bool wide = plane.width >= kWideRow;
          const std::int64_t number = tableOf(plane.plane);
          if (worth && prepared->table && prepared->number == number && prepared->wide == wide) {
            return;
          }
          prepared->table.reset();
          if (!worth) return;
          prepared->number = number;
          prepared->wide = wide;
          prepared->table =
              Table::Make(wide ? Table::kValues : kWideRow / 2,
                          [&](const S* from, D* to, std::int64_t width, std::int64_t lines) {
                            return kernel(from, to, width, lines, width, width, plane.plane);
                          });
        }};
  }
}

}  // namespace

RowConversion NormalizeMappingConversion(ElementKind source, ElementKind destination, double bscale,
                                         double bzero, ConversionRanges ranges) {
  const auto rangeOf = [last = static_cast<std::int64_t>(ranges.size()) - 1](std::int64_t plane) {
    return std::min(plane, last);
  };
  return DispatchToInteger(source, destination, [&]<typename S, typename D>() -> RowConversion {
    const auto kernel = [=](const S* from, D* to, std::int64_t width, std::int64_t lines,
                            std::int64_t fromStride, std::int64_t toStride, std::int64_t plane) {
      const auto [minimum, maximum] = ranges[static_cast<std::size_t>(rangeOf(plane))];
      return kernels::NormalizeMapping(from, to, width, lines, fromStride, toStride, bscale, bzero,
                                       minimum, maximum);
    };
    return ConversionByTable<S, D>(kernel, rangeOf);
  });
}

RowConversion ShiftClampConversion(ElementKind source, ElementKind destination, double bscale,
                                   double bzero, double shift) {
  return DispatchToInteger(source, destination, [&]<typename S, typename D>() -> RowConversion {
    const auto kernel = [=](const S* from, D* to, std::int64_t width, std::int64_t lines,
                            std::int64_t fromStride, std::int64_t toStride, std::int64_t) {
      return kernels::ShiftClamp(from, to, width, lines, fromStride, toStride, bscale, bzero,
                                 shift);
    };
    return ConversionByTable<S, D>(kernel, [](std::int64_t) { return 0; });
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
    conversion.PrepareFor({piece.plane, piece.width, source.GetHeight()});
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
    conversion.PrepareFor({plane, destination.GetWidth(), height});
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
