#include <functional>
#include <string>

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
  explicit CellCounter(const std::string& name)
      : m_counts(name + "_counts"), m_sums(name + "_sums") {}

  // Nothing is counted where `used` does not hold. `cell(x, y)` is the sample's cell
  // plus `cells` times (x mod copies).
  void Define(const OutputImageParam& in, const Expr& used, const Expr& cells, const Expr& copies,
              const std::function<Expr(const Expr&, const Expr&)>& cell) {
    const Expr width = in.width(), height = in.height();
    const Expr samples = cast<std::int64_t>(width) * height;
    const Expr worth = samples / (cast<std::int64_t>(cells) * copies * kSamplesPerCell);
    const Expr groups = min(cast<std::int32_t>(clamp(worth, 1, kGroups)), max(height, 1));
    const Expr rows = (height + groups - 1) / groups;

    m_area = RDom(0, width, 0, select(used, rows, 0), "area");
    const Expr row = m_group * rows + m_area.y;
    m_area.where(row < height);
    const Expr x = in.dim(0).min() + m_area.x;
    const Expr y = in.dim(1).min() + clamp(row, 0, height - 1);
    m_counts(m_i, m_group) = 0;
    m_counts(cell(x, y), m_group) += 1;

    m_parts = RDom(0, copies, 0, select(used, groups, 0), "parts");
    m_sums(m_i) = 0;
    m_sums(m_i) += m_counts(m_i + m_parts.x * cells, m_parts.y);
  }

  // What cell i counted.
  Expr operator()(const Expr& i) const { return m_sums(i); }

  // `staged`: a function of x and y to be computed in vectors, a strip at a time,
  // before the strip's samples are counted one by one.
  void Schedule(Func* staged, const Var& x, const Var& y) {
    m_sums.compute_root().vectorize(m_i, kLanes);
    m_sums.update(0).reorder(m_i, m_parts.x, m_parts.y).vectorize(m_i, kLanes);
    m_counts.compute_root().align_storage(m_i, kCellsOfCacheLine);
    m_counts.parallel(m_group).vectorize(m_i, kLanes);
    RVar strip("strip"), inner("inner");
    Stage count = m_counts.update(0);
    count.split(m_area.x, strip, inner, kStrip, TailStrategy::GuardWithIf)
        .reorder(inner, strip, m_area.y, m_group)
        .parallel(m_group);
    if (staged != nullptr) {
      staged->compute_at(m_counts, strip)
          .bound_extent(y, 1)
          .vectorize(x, kLanes, TailStrategy::GuardWithIf);
    } else {
      count.unroll(inner, kCopies);
    }
  }

  static constexpr int kCopies = 8;
  static constexpr int kLanes = 8;

 private:
  static constexpr int kGroups = 16;
  static constexpr int kSamplesPerCell = 16;
  static constexpr int kCellsOfCacheLine = 16;
  static constexpr int kStrip = 256;

  Var m_i{"i"}, m_group{"group"};
  RDom m_area, m_parts;
  Func m_counts, m_sums;
};

// Counts the samples of a buffer in nBins bins from fMin upward, or mirrored.
//
// Cells are bins, and one for everything outside, so that the scratch depends on
// the bins and never on the range of the values. Where a table over all values of
// the element type is cheap, cells are raw values instead, and each value's count
// is put through the bin formula once: the same counts.
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
    Expr counted = 0;
    if (type.bits() > 8) {
      const Expr cells = select(raw, 1, *nBins + 1);
      const Expr copies = select(cells <= kCellsWithCopies, CellCounter::kCopies, 1);
      m_binCell(m_x, m_y) = clamp(BinOrOutside(ToDouble((*input)(m_x, m_y))), 0, cells - 1) +
                            ((m_x - in.dim(0).min()) & (copies - 1)) * cells;
      m_bins.Define(in, !raw, cells, copies, [&](const Expr& x, const Expr& y) {
        return unsafe_promise_clamped(m_binCell(x, y), 0, cells * copies - 1);
      });
      counted = IsSmall() ? select(raw, 0, m_bins(min(m_i, cells - 1))) : m_bins(m_i);
    }
    (*histogram)(m_i) = counted;
    if (!IsSmall()) return;

    const Expr lowest = cast<std::int32_t>(type.min());
    const int values = 1 << type.bits();
    const int copies = type.bits() == 8 ? CellCounter::kCopies : 2;
    m_values.Define(in, raw, values, copies, [&](const Expr& x, const Expr& y) {
      const Expr value = cast<std::int32_t>((*input)(x, y)) - lowest;
      return value + ((x - in.dim(0).min()) % copies) * values;
    });
    m_binOfValue(m_i) = BinOrOutside(cast<double>(m_i + lowest));
    RDom inside(0, select(raw, values, 0), "inside");
    inside.where(m_binOfValue(inside) < *nBins);
    (*histogram)(clamp(m_binOfValue(inside), 0, *nBins - 1)) += m_values(inside);
  }

  void schedule() {
    histogram->dim(0).set_bounds(0, *nBins);
    Func(*histogram).vectorize(m_i, CellCounter::kLanes, TailStrategy::GuardWithIf);
    if (static_cast<Type>(element).bits() > 8) m_bins.Schedule(&m_binCell, m_x, m_y);
    if (IsSmall()) {
      m_values.Schedule(nullptr, m_x, m_y);
      m_binOfValue.compute_root().vectorize(m_i, CellCounter::kLanes);
      histogram->update(0).unscheduled();
    }
  }

 private:
  static constexpr int kCellsWithCopies = 4096;

  // True when the cells may be all values of the type.
  bool IsSmall() const {
    const Type type = element;
    return type.is_int_or_uint() && type.bits() <= 16;
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

  Var m_x{"x"}, m_y{"y"}, m_i{"i"};
  Func m_binCell{"binCell"}, m_binOfValue{"binOfValue"};
  CellCounter m_bins{"bins"}, m_values{"values"};
};

}  // namespace

HALIDE_REGISTER_GENERATOR(Histogram, histogram)
