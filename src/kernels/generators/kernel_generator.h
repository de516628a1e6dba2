#pragma once

#include <Halide.h>

#include <cmath>
#include <cstdint>
#include <vector>

// What the generators of all families share: the element type as a parameter,
// the exact arithmetic, and how rows are handed to the thread pool.
namespace korin::generators {

using Halide::Expr;
using Halide::Type;
using Halide::Var;

// The lanes of a sum: sample x of a row goes to lane x mod 8. One number for
// every instruction set, or the variants would round differently.
inline constexpr int kSumLanes = 8;

// Samples below which a loop is not worth waking the thread pool for.
inline constexpr int kSerialSamples = 1 << 15;

// Samples above which tables over all values of an 8- or 16-bit element pay.
inline constexpr int kTableSamples = 1 << 18;

// A double operation that keeps its order: nothing reassociated, no reciprocal
// in place of a division, comparisons that a NaN fails.
inline Expr Exact(const Expr& e) { return Halide::strict_float(e); }

// The sample as a double, exactly. Small integers go by way of int32, for which
// the processor has an instruction.
inline Expr ToDouble(const Expr& v) {
  const Type t = v.type();
  if (t.is_int_or_uint() && t.bits() < 32) {
    return Halide::cast<double>(Halide::cast<std::int32_t>(v));
  }
  return Halide::cast<double>(v);
}

// A double already within the range of `to`, truncated toward zero.
inline Expr TruncateTo(const Type& to, const Expr& v) {
  if (to.bits() < 32) return Halide::cast(to, Halide::cast<std::int32_t>(v));
  return Halide::cast(to, v);
}

// Clamps as selections: a NaN fails the first comparison and becomes `high`.
inline Expr ClampHighFirst(const Expr& v, const Expr& low, const Expr& high) {
  const Expr capped = Exact(Halide::select(v < high, v, high));
  return Exact(Halide::select(capped > low, capped, low));
}

// The smallest and largest value that a running minimum or maximum starts from.
inline Expr SeedOfMin(const Type& t) {
  return t.is_float() ? Halide::cast(t, Expr(INFINITY)) : t.max();
}
inline Expr SeedOfMax(const Type& t) {
  return t.is_float() ? Halide::cast(t, Expr(-INFINITY)) : t.min();
}

// The running minimum or maximum. Floats compare strictly, so that a NaN is
// never taken, wherever it stands.
inline Expr Lower(const Expr& best, const Expr& v) {
  if (!v.type().is_float()) return Halide::min(best, v);
  return Exact(Halide::select(v < best, v, best));
}
inline Expr Higher(const Expr& best, const Expr& v) {
  if (!v.type().is_float()) return Halide::max(best, v);
  return Exact(Halide::select(v > best, v, best));
}

// A zero extreme is reported as +0: which of -0 and +0 a vector met first
// depends on its lanes, and the answer must not.
inline Expr PositiveZero(const Expr& v) {
  if (!v.type().is_float()) return v;
  return Exact(v + Halide::cast(v.type(), 0));
}

// Rows per parallel task: one row each would lose its gain to the queue's lock,
// and a small buffer is one task, which the pool never sees.
inline Expr RowsPerTask(const Expr& width, const Expr& height) {
  const Expr samples = Halide::cast<std::int64_t>(width) * height;
  return Halide::select(samples < kSerialSamples, Halide::max(height, 1),
                        Halide::clamp((height + 7) / 8, 1, 16));
}

// Vector lanes of a conversion's row loop.
inline constexpr int kConversionLanes = 8;

// Rows of a buffer in groups on the thread pool, vectors along each row.
inline void ScheduleRows(Halide::Stage loops, const Var& x, const Var& y, const Expr& width,
                         const Expr& height, int lanes) {
  Var group("group"), row("row");
  loops.split(y, group, row, RowsPerTask(width, height), Halide::TailStrategy::GuardWithIf)
      .parallel(group)
      .vectorize(x, lanes, Halide::TailStrategy::GuardWithIf);
}

// One sample of the result from one sample of the source, over a whole buffer.
class SampleLoop {
 public:
  template <typename Convert>
  void Define(Halide::Func out, Halide::Func in, Convert convert) {
    out(m_x, m_y) = convert(in(m_x, m_y));
  }

  // `convert` takes the sample as a double. Where `useTable` holds, the results
  // of all values of an 8- or 16-bit source are computed once per call and looked
  // up: the same bits, without a division for each sample.
  template <typename Convert>
  void Define(Halide::Func out, Halide::Func in, const Type& from, const Expr& useTable,
              Convert convert) {
    const Expr v = in(m_x, m_y);
    const Expr direct = convert(ToDouble(v));
    if (!from.is_int_or_uint() || from.bits() > 16) {
      out(m_x, m_y) = direct;
      return;
    }
    const Expr lowest = Halide::cast<std::int32_t>(from.min());
    m_table(m_i) = convert(Halide::cast<double>(m_i + lowest));
    m_useTable = useTable;
    out(m_x, m_y) =
        Halide::select(useTable, m_table(Halide::cast<std::int32_t>(v) - lowest), direct);
  }

  // `variants` are conditions that get loops of their own.
  void Schedule(Halide::Func out, const Expr& width, const Expr& height, int lanes,
                const std::vector<Expr>& variants = {}) {
    if (m_useTable.defined()) {
      ScheduleRows(out.specialize(m_useTable), m_x, m_y, width, height, lanes);
      m_table.compute_at(out, Var::outermost()).vectorize(m_i, kConversionLanes);
    }
    for (const Expr& variant : variants) {
      ScheduleRows(out.specialize(variant), m_x, m_y, width, height, lanes);
    }
    ScheduleRows(out, m_x, m_y, width, height, lanes);
  }

 private:
  Var m_x{"x"}, m_y{"y"}, m_i{"i"};
  Halide::Func m_table{"table"};
  Expr m_useTable;
};

}  // namespace korin::generators
