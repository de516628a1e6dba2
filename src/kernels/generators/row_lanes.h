#pragma once

#include "fetch_ahead.h"

// Sums over the rows of a rectangle with a fixed number of lanes.
namespace korin::generators {

// Which samples are summed: `width` samples of `height` rows from (x0, y0).
struct SumArea {
  Expr x0, y0, width, height;
};

// A sample's share of the mean over width x height samples: v * (1 / n), except
// that the first sample of a row of odd length is v / n.
class MeanTerm {
 public:
  MeanTerm(const Expr& width, const Expr& height)
      : m_count(Halide::cast<double>(Halide::cast<std::int64_t>(width) * height)),
        m_odd(width % 2 != 0) {}

  Expr Scale() const { return Exact(Expr(1.0) / m_count); }

  Expr operator()(const Expr& v, const Expr& first) const {
    const Expr d = ToDouble(v);
    if (!first.defined()) return Exact(d * Scale());
    return Halide::select(first && m_odd, Exact(d / m_count), Exact(d * Scale()));
  }

 private:
  Expr m_count, m_odd;
};

inline std::vector<Expr> AddValues(const std::vector<Expr>& a, const std::vector<Expr>& b) {
  return {Exact(a[0] + b[0])};
}

// One accumulator (a tuple of values) for each lane of each row. Lane l of a row
// takes samples l, l + 8, l + 16, ... in this order; the first block, those that fill
// no step and the last samples of a row have loops of their own, so that the loop over
// the steps carries no test.
class RowLanes {
 public:
  using Values = std::vector<Expr>;

  // seed: what a lane starts from. add(lane values, sample, first): the lane's
  // new values, `first` telling whether the sample is the first of its row (undefined: it never
  // is).
  template <typename Add>
  void Define(Halide::Func in, const SumArea& area, const Values& seed, Add add) {
    const Expr blocks = area.width / kSumLanes;
    const int blocksOfStep = kStepBytes / (kSumLanes * in.output_types()[0].bytes());
    // Halide divides toward -infinity: -1 steps where there is no block. The range that
    // Halide infers then ends within the row.
    const Expr steps = (blocks - 1) / blocksOfStep;
    m_first = Halide::RDom(0, Halide::min(blocks, 1), "first");
    m_steps = Halide::RDom(0, blocksOfStep, 0, steps, "steps");
    m_others =
        Halide::RDom(0, Halide::select(blocks > 0, (blocks - 1) % blocksOfStep, 0), "others");
    m_last = Halide::RDom(0, area.width % kSumLanes, "last");

    m_lanes(m_lane, m_row) = Halide::Tuple(seed);
    const auto sample = [&](const Expr& x) { return in(area.x0 + x, area.y0 + m_row); };
    const auto ofBlock = [&](const Expr& block) { return block * kSumLanes + m_lane; };
    Update(m_lane, sample(ofBlock(m_first)), m_lane == 0, add);
    Update(m_lane, sample(ofBlock(1 + m_steps.y * blocksOfStep + m_steps.x)), Expr(), add);
    Update(m_lane,
           sample(Halide::unsafe_promise_clamped(ofBlock(1 + steps * blocksOfStep + m_others), 0,
                                                 area.width - 1)),
           Expr(), add);
    Update(m_last, sample(blocks * kSumLanes + m_last), m_last == 0 && blocks == 0, add);
  }

  // The lanes of a row folded in one fixed order: lanes 4 apart, then 2, then 1.
  template <typename Combine>
  Values Fold(const Expr& row, Combine combine) {
    std::vector<Values> lanes;
    for (int l = 0; l < kSumLanes; ++l) lanes.push_back(At(l, row));
    for (int half = kSumLanes / 2; half > 0; half /= 2) {
      for (int l = 0; l < half; ++l) lanes[l] = combine(lanes[l], lanes[l + half]);
    }
    return lanes[0];
  }

  // Rows, each with its lanes, in groups on the thread pool. `in`: what they are of.
  template <typename Image>
  void Schedule(Halide::Func rows, const Var& row, const SumArea& area, const Image& in) {
    Var group("group");
    rows.compute_root()
        .split(row, group, row, RowsPerTask(area.width, area.height),
               Halide::TailStrategy::GuardWithIf)
        .parallel(group);
    m_lanes.compute_at(rows, row).vectorize(m_lane, kSumLanes);
    m_lanes.update(0).vectorize(m_lane, kSumLanes);
    m_lanes.update(1)
        .reorder(m_lane, m_steps.x, m_steps.y)
        .vectorize(m_lane, kSumLanes)
        .prefetch(in, m_steps.y, m_steps.y, kAheadBytes / kStepBytes,
                  Halide::PrefetchBoundStrategy::NonFaulting);
    m_lanes.update(2).reorder(m_lane, m_others).vectorize(m_lane, kSumLanes);
    m_lanes.update(3).unscheduled();
  }

 private:
  static constexpr int kStepBytes = 64;

  template <typename Add>
  void Update(const Expr& lane, const Expr& sample, const Expr& first, Add add) {
    m_lanes(lane, m_row) = Halide::Tuple(add(At(lane, m_row), sample, first));
  }

  Values At(const Expr& lane, const Expr& row) {
    const Halide::FuncRef ref = m_lanes(lane, row);
    if (m_lanes.outputs() == 1) return {Expr(ref)};
    Values values;
    for (int i = 0; i < m_lanes.outputs(); ++i) values.push_back(ref[i]);
    return values;
  }

  Var m_lane{"lane"}, m_row{"row"};
  Halide::Func m_lanes{"lanes"};
  Halide::RDom m_first, m_steps, m_others, m_last;
};

}  // namespace korin::generators
