#pragma once

#include <cstdint>
#include <memory>

#include "korinimage/export.h"
#include "korinimage/progress.h"

namespace korin {

// One operation on a progress sink, as an object on the stack of the operation:
// initialize at construction, whole percentages without repeats, finalize on every
// way out. An empty sink is never called and costs no arithmetic.
//
// An initialize that throws leaves the constructor: no finalize follows. An update
// that throws leaves Step. What finalize throws is swallowed, because the scope
// may be closing while another exception passes.
//
// Thread rule: one scope belongs to one thread, the one that runs the loop.
class KORINIMAGE_API ScopedProgress {
 public:
  // `total`: the number of steps. With total <= 0 nothing is ever reported between
  // initialize and finalize.
  ScopedProgress(std::shared_ptr<Progress> progress, std::int64_t total);
  ScopedProgress(const ScopedProgress&) = delete;
  ScopedProgress& operator=(const ScopedProgress&) = delete;
  virtual ~ScopedProgress();

  // Reports the start of step `i`, counted from 0: (i + 1) x 100 / total, truncated,
  // and only when it differs from the last percentage told. A step at or past the
  // total reports more than 100.
  void Step(std::int64_t i);

 private:
  std::shared_ptr<Progress> m_progress;
  std::int64_t m_total;
  int m_lastPercent = -1;
};

// The same over the rows of several planes: planes outermost, rows inner.
class KORINIMAGE_API ImageRowsScopedProgress : public ScopedProgress {
 public:
  // Total = planes x rows; a product that does not fit 64 bits, or is not positive,
  // reports nothing.
  ImageRowsScopedProgress(std::shared_ptr<Progress> progress, std::int64_t planes,
                          std::int64_t rows);
  ~ImageRowsScopedProgress() override;

  // Reports the start of row `y` of plane `plane`, both counted from 0.
  void Row(std::int64_t plane, std::int64_t y);

 private:
  std::int64_t m_planes;
  std::int64_t m_rows;
};

}  // namespace korin
