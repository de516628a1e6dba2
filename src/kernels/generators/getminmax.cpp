#include "fetch_ahead.h"

namespace {

using namespace Halide;
using namespace korin::generators;

// Minimum and maximum of the whole buffer, on the calling thread.
class GetMinMax : public Generator<GetMinMax> {
 public:
  GeneratorParam<Type> element{"element", UInt(8)};

  Input<Buffer<>>* input = nullptr;
  Output<Func> minmax{"minmax", 0};

  void configure() { input = add_input<Buffer<>>("input", element, 2); }

  void generate() {
    const Type type = element;
    m_lanes = kBytesPerStep / type.bytes();
    const Expr x0 = input->dim(0).min(), y0 = input->dim(1).min();
    const Expr width = input->width(), height = input->height();
    m_steps = RDom(0, width / m_lanes, 0, height, "steps");
    m_last = RDom(0, width % m_lanes, 0, height, "last");

    m_best(m_lane) = Tuple(SeedOfMin(type), SeedOfMax(type));
    Update(m_best, m_lane, (*input)(x0 + m_steps.x * m_lanes + m_lane, y0 + m_steps.y));
    Update(m_best, m_last.x, (*input)(x0 + width / m_lanes * m_lanes + m_last.x, y0 + m_last.y));

    const RDom all(0, m_lanes, "all");
    m_total() = Tuple(SeedOfMin(type), SeedOfMax(type));
    m_total() = Tuple(Lower(m_total()[0], m_best(all)[0]), Higher(m_total()[1], m_best(all)[1]));
    minmax() = Tuple(PositiveZero(m_total()[0]), PositiveZero(m_total()[1]));
  }

  void schedule() {
    FetchIntoAllCaches::In(get_pipeline());
    const Type type = element;
    // Vectors of 16 bytes: wider integer accumulators are split and rejoined at
    // each step where only the floating-point registers are wider.
    const int vector = type.is_float() ? m_lanes / 2 : m_lanes / 4;
    Var inner("inner");
    m_best.compute_root().vectorize(m_lane, vector);
    m_best.update(0)
        .reorder(m_lane, m_steps.x, m_steps.y)
        .split(m_lane, m_lane, inner, vector)
        .vectorize(inner)
        .unroll(m_lane)
        .prefetch(*input, m_steps.x, m_steps.x, kAheadBytes / kBytesPerStep,
                  PrefetchBoundStrategy::NonFaulting);
    m_best.update(1).unscheduled();
    m_total.compute_root();
  }

 private:
  static constexpr int kBytesPerStep = 64;

  static void Update(Func& best, const Expr& lane, const Expr& v) {
    best(lane) = Tuple(Lower(best(lane)[0], v), Higher(best(lane)[1], v));
  }

  int m_lanes = 0;
  RDom m_steps, m_last;
  Var m_lane{"lane"};
  Func m_best{"best"}, m_total{"total"};
};

}  // namespace

HALIDE_REGISTER_GENERATOR(GetMinMax, getminmax)
