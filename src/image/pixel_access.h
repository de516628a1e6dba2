#pragma once

#include <cstdint>

#include "kernels/element.h"
#include "kernels/paged_rows.h"
#include "kernels/row_batch.h"
#include "korinimage/vm_image.h"

namespace korin {

// The pixels of an image as a loop sees them: the store, the part of it that the
// image's attributes name, and the scaling. Made only after the
// two were found to fit each other, so that no loop leaves the store.
struct PixelView {
  CVmImage* store = nullptr;
  std::int64_t width = 0;   // <= store width; rows are the store's own lines
  std::int64_t height = 0;  // <= store height
  std::int64_t planes = 0;  // <= store planes
  ElementKind kind = ElementKind::UInt8;
  double bscale = 1.0;
  double bzero = 0.0;

  std::int64_t StrideElements() const { return store->GetWidth(); }
};

// Runs over stretches of a plane's rows that lie side by side in memory:
//   body(const T* rows, std::int64_t y, std::int64_t lines)
// on the kernels' threads, in any order; what a body finds it keeps apart by y, and
// only what it found last there counts.
template <typename T, typename Body>
void ForEachStretch(const PixelView& view, std::int64_t plane, Body&& body) {
  if (view.width <= 0) return;
  if (!view.store->IsOnMemory()) {
    ForEachPagedStretch(*view.store, plane, view.height,
                        [&](const BYTE* rows, std::int64_t first, std::int64_t lines) {
                          body(reinterpret_cast<const T*>(rows), first, lines);
                        });
    return;
  }
  for (std::int64_t y = 0; y < view.height;) {
    const RowBatch batch(*view.store, plane, y, view.height - y, BlockIntent::Read, true);
    ParallelStretches(batch, view.store->GetBytesPerLine(),
                      [&](const BYTE* rows, std::int64_t first, std::int64_t lines) {
                        body(reinterpret_cast<const T*>(rows), first, lines);
                      });
    y += batch.RowCount();
  }
}

// The same row by row: body(const T* row, std::int64_t y).
template <typename T, typename Body>
void ForEachRow(const PixelView& view, std::int64_t plane, Body&& body) {
  ForEachStretch<T>(view, plane, [&](const T* rows, std::int64_t y, std::int64_t lines) {
    for (std::int64_t line = 0; line < lines; ++line) {
      body(rows + line * view.StrideElements(), y + line);
    }
  });
}

}  // namespace korin
