#include "row_lanes.h"

namespace {

using namespace Halide;
using namespace korin::generators;

// The population deviation of the whole buffer about a given mean, by moments:
// sqrt(sum of v * v / N - average * average), a NaN when rounding makes the
// difference negative.
class GetDev : public Generator<GetDev> {
 public:
  GeneratorParam<Type> element{"element", UInt(8)};

  Input<Buffer<>>* input = nullptr;
  Input<double>* average = nullptr;
  Output<Buffer<>>* output = nullptr;

  void configure() {
    input = add_input<Buffer<>>("input", element, 2);
    average = add_input<double>("average");
    output = add_output<Buffer<>>("output", Float(64), 0);
  }

  void generate() {
    m_area = {input->dim(0).min(), input->dim(1).min(), input->width(), input->height()};
    const Expr scale = MeanTerm(m_area.width, m_area.height).Scale();
    m_lanes.Define(*input, m_area, {Expr(0.0)},
                   [&](const RowLanes::Values& sum, const Expr& v, const Expr&) {
                     const Expr d = ToDouble(v);
                     return RowLanes::Values{Exact(sum[0] + d * d * scale)};
                   });
    m_rows(m_row) = m_lanes.Fold(m_row, AddValues)[0];
    m_total() = Expr(0.0);
    const RDom rows(0, m_area.height, "rows");
    m_total() = Exact(m_total() + m_rows(rows));
    (*output)() = Exact(sqrt(m_total() - *average * *average));
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

HALIDE_REGISTER_GENERATOR(GetDev, getdev)
