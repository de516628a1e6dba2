#include "row_lanes.h"

namespace {

using namespace Halide;
using namespace korin::generators;

// Minimum, maximum and mean of the whole buffer in one pass.
class GetMinMaxAvr : public Generator<GetMinMaxAvr> {
 public:
  GeneratorParam<Type> element{"element", UInt(8)};

  Input<Buffer<>>* input = nullptr;
  Output<Func> minmaxavr{"minmaxavr", 0};

  void configure() { input = add_input<Buffer<>>("input", element, 2); }

  void generate() {
    using Values = RowLanes::Values;
    const Type type = element;
    const Values seed = {SeedOfMin(type), SeedOfMax(type), Expr(0.0)};
    const auto merge = [](const Values& a, const Values& b) {
      return Values{Lower(a[0], b[0]), Higher(a[1], b[1]), Exact(a[2] + b[2])};
    };

    m_area = {input->dim(0).min(), input->dim(1).min(), input->width(), input->height()};
    const MeanTerm term(m_area.width, m_area.height);
    m_lanes.Define(*input, m_area, seed, [&](const Values& a, const Expr& v, const Expr& first) {
      return Values{Lower(a[0], v), Higher(a[1], v), Exact(a[2] + term(v, first))};
    });
    m_rows(m_row) = Tuple(m_lanes.Fold(m_row, merge));
    m_total() = Tuple(seed);
    const RDom rows(0, m_area.height, "rows");
    m_total() = Tuple(merge({m_total()[0], m_total()[1], m_total()[2]},
                            {m_rows(rows)[0], m_rows(rows)[1], m_rows(rows)[2]}));
    minmaxavr() = Tuple(PositiveZero(m_total()[0]), PositiveZero(m_total()[1]), m_total()[2]);
  }

  void schedule() {
    FetchIntoAllCaches::In(get_pipeline());
    m_lanes.Schedule(m_rows, m_row, m_area, *input);
    m_total.compute_root();
  }

 private:
  SumArea m_area;
  RowLanes m_lanes;
  Var m_row{"row"};
  Func m_rows{"rows"}, m_total{"total"};
};

}  // namespace

HALIDE_REGISTER_GENERATOR(GetMinMaxAvr, getminmaxavr)
