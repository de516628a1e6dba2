#include <functional>

#include "kernel_generator.h"

namespace {

using namespace Halide;
using namespace korin::generators;

// Counts samples in cells. Groups of rows count in cells of their own, as many
// groups as counting outweighs clearing and adding up cells. Neighbouring samples
// are often equal, so within a group samples x mod `copies` count in copies of the
// cells and need not wait for each other's store.
class CellCounter {
 public:
  // Nothing is counted where `used` does not hold. `cell(x, y)` is the sample's cell.
  void Define(const OutputImageParam& in, const Expr& used, const Expr& cells, const Expr& copies,
              const std::function<Expr(const Expr&, const Expr&)>& cell) {
    const Expr width = in.width(), height = in.height();
    const Expr samples = cast<std::int64_t>(width) * height;
    const Expr all = cast<std::int64_t>(cells) * copies;
    const Expr most = min(samples / (all * kSamplesPerCell), kMostCells / all);
    const Expr groups = min(cast<std::int32_t>(clamp(most, 1, kGroups)), max(height, 1));
    const Expr rows = (height + groups - 1) / groups;

    const Expr row = clamp(m_group * rows + m_y, 0, height - 1);
    m_cell(m_x, m_y, m_group) =
        cell(in.dim(0).min() + m_x, in.dim(1).min() + row) + (m_x & (copies - 1)) * cells;
    m_area = RDom(0, width, 0, select(used, rows, 0), "area");
    m_area.where(m_group * rows + m_area.y < height);
    m_counts(m_i, m_group) = 0;
    m_counts(unsafe_promise_clamped(m_cell(m_area.x, m_area.y, m_group), 0, cells * copies - 1),
             m_group) += 1;

    m_parts = RDom(0, copies, 0, select(used, groups, 0), "parts");
    m_sums(m_i) = 0;
    m_sums(m_i) += m_counts(m_i + m_parts.x * cells, m_parts.y);
  }

  // What cell i counted.
  Expr operator()(const Expr& i) const { return m_sums(i); }

  void Schedule() {
    m_sums.compute_root().vectorize(m_i, kLanes);
    m_sums.update(0).reorder(m_i, m_parts.x, m_parts.y).vectorize(m_i, kLanes);
    m_counts.compute_root().align_storage(m_i, kCellsOfCacheLine);
    m_counts.parallel(m_group).vectorize(m_i, kLanes);
    RVar strip("strip"), inner("inner");
    m_counts.update(0)
        .split(m_area.x, strip, inner, kStrip, TailStrategy::GuardWithIf)
        .reorder(inner, strip, m_area.y, m_group)
        .parallel(m_group);
    // In vectors, a strip at a time, before the strip's samples are counted one by one.
    m_cell.compute_at(m_counts, strip).vectorize(m_x, kLanes, TailStrategy::GuardWithIf);
  }

  static constexpr int kCopies = 8;
  static constexpr int kLanes = 8;
  // Of all groups and copies: 8 MiB, and as much for the sums at most.
  static constexpr int kMostCells = 1 << 21;

 private:
  static constexpr int kGroups = 16;
  static constexpr int kSamplesPerCell = 16;
  static constexpr int kCellsOfCacheLine = 16;
  static constexpr int kStrip = 256;

  Var m_x{"x"}, m_y{"y"}, m_i{"i"}, m_group{"group"};
  RDom m_area, m_parts;
  Func m_cell{"cell"}, m_counts{"counts"}, m_sums{"sums"};
};

// Counts the samples of a buffer in nBins bins from fMin upward, or mirrored.
//
// Cells are bins, and one for everything outside, so that the scratch depends on
// the bins and never on the range of the values. Where a table over all values of
// the element type is cheap, cells are raw values instead, and each value's count
// is put through the bin formula once: the same counts. More bins than fit the
// scratch are counted one by one where they are wanted.
class Histogram : public Generator<Histogram> {
 public:
  GeneratorParam<Type> element{"element", UInt(8)};
  GeneratorParam<bool> inverse{"inverse", false};

  Input<Buffer<>>* input = nullptr;
  Input<double>* fMin = nullptr;
  Input<double>* fMax = nullptr;
  Input<std::int32_t>* nBins = nullptr;
  Output<Buffer<>>* histogram = nullptr;

  void configure() {
    input = add_input<Buffer<>>("input", element, 2);
    fMin = add_input<double>("fMin");
    fMax = add_input<double>("fMax");
    nBins = add_input<std::int32_t>("nBins");
    histogram = add_output<Buffer<>>("histogram", Int(32), 1);
  }

  void generate() {
    const Type type = element;
    const OutputImageParam& in = *input;
    const Expr samples = cast<std::int64_t>(in.width()) * in.height();
    const Expr raw = type.bits() == 16 ? samples >= kTableSamples : Expr(cast<bool>(IsSmall()));
    if (type.bits() == 8) {
      (*histogram)(m_i) = 0;
    } else {
      CountBins(raw);
    }
    if (IsSmall()) CountValues(raw);
  }

  void schedule() {
    histogram->dim(0).set_bounds(0, *nBins);
    Func(*histogram).vectorize(m_i, CellCounter::kLanes, TailStrategy::GuardWithIf);
    if (static_cast<Type>(element).bits() > 8) {
      m_bins.Schedule();
      histogram->update(0).unscheduled();
    }
    if (IsSmall()) {
      m_values.compute_root();
      m_binOfValue.compute_root().vectorize(m_i, CellCounter::kLanes);
      histogram->update(Func(*histogram).num_update_definitions() - 1).unscheduled();
    }
  }

 private:
  static constexpr int kCellsWithCopies = 4096;

  // True when the cells may be all values of the type.
  bool IsSmall() const {
    const Type type = element;
    return type.is_int_or_uint() && type.bits() <= 16;
  }

  // Sample by sample, unless by values.
  void CountBins(const Expr& raw) {
    const OutputImageParam& in = *input;
    const Expr tooMany = *nBins >= CellCounter::kMostCells;
    const Expr byCells = !raw && !tooMany;
    const Expr cells = select(byCells, *nBins + 1, 1);
    const Expr copies = select(cells <= kCellsWithCopies, CellCounter::kCopies, 1);
    m_bins.Define(in, byCells, cells, copies, [&](const Expr& x, const Expr& y) {
      return clamp(BinOrOutside(ToDouble((*input)(x, y))), 0, cells - 1);
    });
    (*histogram)(m_i) = select(byCells, m_bins(min(m_i, cells - 1)), 0);

    RDom all(0, in.width(), 0, select(!raw && tooMany, in.height(), 0), "all");
    const Expr bin =
        BinOrOutside(ToDouble((*input)(in.dim(0).min() + all.x, in.dim(1).min() + all.y)));
    all.where(bin < *nBins);
    (*histogram)(clamp(bin, 0, *nBins - 1)) += 1;
  }

  // Each value at once. The library counts them (value_counter.h): each thread in a
  // table of its own, which no schedule can say.
  void CountValues(const Expr& raw) {
    const Type type = element;
    const OutputImageParam& in = *input;
    const int values = 1 << type.bits();
    const Expr lowest = cast<std::int32_t>(type.min());
    m_values.define_extern("korin_count_values",
                           {*input, in.dim(0).min(), in.width(), in.dim(1).min(), in.height()},
                           UInt(32), 1, NameMangling::C);
    m_binOfValue(m_i) = BinOrOutside(cast<double>(m_i + lowest));
    RDom inside(0, select(raw, values, 0), "inside");
    inside.where(m_binOfValue(inside) < *nBins);
    (*histogram)(clamp(m_binOfValue(inside), 0, *nBins - 1)) +=
        cast<std::int32_t>(m_values(inside));
  }

  // The bin of a sample, truncated toward zero, or nBins when it has none. The
  // quotient is compared as a double, so that a NaN and values beyond an int32
  // fall out before they are converted.
  Expr BinOrOutside(const Expr& v) const {
    const Type type = element;
    const Expr bins = cast<double>(*nBins);
    const Expr wanted = Exact((*fMax - *fMin) / bins);
    const Expr binWidth = Exact(select(wanted > Expr(1.0), wanted, Expr(1.0)));
    const Expr scale = Exact(Expr(1.0) / binWidth);
    const Expr distance = inverse ? *fMin - v : v - *fMin;
    Expr q = Exact(type.is_float() ? distance / binWidth : distance * scale);
    if (inverse) q = Exact(q + bins);
    q = Exact(select(q > Expr(-1.0), q, bins));
    q = Exact(select(q < bins, q, bins));
    // The bits of the integer, not its value: what bounds the index is the clamp of
    // the caller, never an estimate made from the doubles.
    return reinterpret<std::int32_t>(reinterpret<std::uint32_t>(cast<std::int32_t>(q)));
  }

  Var m_i{"i"};
  Func m_binOfValue{"binOfValue"}, m_values{"values"};
  CellCounter m_bins;
};

}  // namespace

HALIDE_REGISTER_GENERATOR(Histogram, histogram)
