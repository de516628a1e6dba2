#include "kernel_generator.h"

namespace {

using namespace Halide;
using namespace korin::generators;

// Counts the samples of a buffer in nBins bins from fMin upward, or mirrored.
//
// Rows are counted in a few groups, each with cells of its own: one cell a bin
// and one for everything outside, so that the scratch depends on the bins and
// never on the range of the values. Where a table over all values of the element
// type is cheap, the cells count raw values instead, and each value's count is
// put through the bin formula once: the same counts.
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
    const Expr width = input->width(), height = input->height();
    const Expr x0 = input->dim(0).min(), y0 = input->dim(1).min();
    const Expr samples = cast<std::int64_t>(width) * height;
    const Expr v = (*input)(m_x, m_y);
    m_small = type.is_int_or_uint() && type.bits() <= 16;

    // What a cell stands for: a raw value, or a bin.
    m_raw = type.bits() == 16 ? samples >= kTableSamples : cast<bool>(m_small ? 1 : 0);
    const Expr lowest = m_small ? cast<std::int32_t>(type.min()) : Expr(0);
    const Expr values = m_small ? 1 << type.bits() : 1;
    const Expr cells = select(m_raw, values, *nBins + 1);
    // Neighbouring samples are often equal: with few cells, samples x mod 8 count
    // in copies of their own and need not wait for each other's store.
    m_oneCopy = cells > kCellsWithCopies;
    const Expr copies = select(m_oneCopy, 1, kCopies);
    // Groups of rows, as many as counting outweighs clearing and adding cells.
    const Expr worth = samples / (cast<std::int64_t>(cells) * copies * 4);
    const Expr groups = min(cast<std::int32_t>(clamp(worth, 1, kGroups)), max(height, 1));
    const Expr rowsOfGroup = (height + groups - 1) / groups;

    m_area = RDom(0, width, 0, rowsOfGroup, "area");
    const Expr row = m_group * rowsOfGroup + m_area.y;
    m_area.where(row < height);
    const Expr x = x0 + m_area.x, y = y0 + min(row, height - 1);
    m_bin(m_x, m_y) = BinOrOutside(ToDouble(v));
    const Expr cell = m_small
                          ? select(m_raw, cast<std::int32_t>((*input)(x, y)) - lowest, m_bin(x, y))
                          : m_bin(x, y);
    m_counts(m_i, m_group) = 0;
    const Expr copy = unsafe_promise_clamped(m_area.x & (copies - 1), 0, copies - 1);
    m_counts(clamp(cell, 0, cells - 1) * copies + copy, m_group) += 1;

    m_parts = RDom(0, copies, 0, groups, "parts");
    m_sums(m_i) = 0;
    m_sums(m_i) += m_counts(m_i * copies + m_parts.x, m_parts.y);

    (*histogram)(m_i) = m_small ? select(m_raw, 0, m_sums(min(m_i, cells - 1))) : m_sums(m_i);
    if (m_small) {
      m_binOfValue(m_i) = BinOrOutside(cast<double>(m_i + lowest));
      m_value = RDom(0, select(m_raw, values, 0), "value");
      m_value.where(m_binOfValue(m_value) < *nBins);
      (*histogram)(clamp(m_binOfValue(m_value), 0, *nBins - 1)) += m_sums(m_value);
    }
  }

  void schedule() {
    histogram->dim(0).set_bounds(0, *nBins);
    Func(*histogram).vectorize(m_i, kLanes, TailStrategy::GuardWithIf);

    m_sums.compute_root().vectorize(m_i, kLanes);
    const auto add = [&](Stage stage) {
      stage.reorder(m_i, m_parts.x, m_parts.y).vectorize(m_i, kLanes);
    };
    add(m_sums.update(0).specialize(m_oneCopy));
    add(m_sums.update(0));

    m_counts.compute_root().align_storage(m_i, kCellsOfCacheLine).parallel(m_group);
    m_counts.vectorize(m_i, kLanes);
    const bool staged = static_cast<Type>(element).bits() > 8;
    RVar strip("strip"), inner("inner");
    const auto count = [&](Stage stage) {
      if (staged) {
        stage.split(m_area.x, strip, inner, kStrip, TailStrategy::GuardWithIf)
            .reorder(inner, strip, m_area.y, m_group);
      } else {
        stage.reorder(m_area.x, m_area.y, m_group);
      }
      stage.parallel(m_group);
    };
    if (m_small) {
      m_binOfValue.compute_root().vectorize(m_i, kLanes);
      count(m_counts.update(0).specialize(m_raw));
      histogram->update(0).unscheduled();
    }
    count(m_counts.update(0));
    // The bins of a strip are computed in vectors, then counted one by one.
    if (staged) {
      m_bin.compute_at(m_counts, strip).vectorize(m_x, kLanes, TailStrategy::GuardWithIf);
    }
  }

 private:
  static constexpr int kGroups = 16;
  static constexpr int kCopies = 8;
  static constexpr int kCellsWithCopies = 4096;
  static constexpr int kCellsOfCacheLine = 16;
  static constexpr int kLanes = 8;
  static constexpr int kStrip = 256;

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
    // The bits of the integer, not its value: what bounds the index must be the
    // clamp of the caller, never an estimate made from the doubles.
    return reinterpret<std::int32_t>(reinterpret<std::uint32_t>(cast<std::int32_t>(q)));
  }

  Var m_x{"x"}, m_y{"y"}, m_i{"i"}, m_group{"group"};
  bool m_small = false;
  Expr m_raw, m_oneCopy;
  RDom m_area, m_parts, m_value;
  Func m_bin{"bin"}, m_binOfValue{"binOfValue"}, m_counts{"counts"}, m_sums{"sums"};
};

}  // namespace

HALIDE_REGISTER_GENERATOR(Histogram, histogram)
