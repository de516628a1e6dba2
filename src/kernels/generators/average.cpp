#include "row_lanes.h"

namespace {

using namespace Halide;
using namespace korin::generators;

// The mean over [start_x, end_x) x [start_y, end_y) as the sum of v / n; 0 for
// an empty rectangle.
class Average : public Generator<Average> {
 public:
  GeneratorParam<Type> element{"element", UInt(8)};

  Input<Buffer<>>* input = nullptr;
  Input<std::int32_t>* start_x = nullptr;
  Input<std::int32_t>* end_x = nullptr;
  Input<std::int32_t>* start_y = nullptr;
  Input<std::int32_t>* end_y = nullptr;
  Output<Buffer<>>* average = nullptr;

  void configure() {
    input = add_input<Buffer<>>("input", element, 2);
    start_x = add_input<std::int32_t>("start_x");
    end_x = add_input<std::int32_t>("end_x");
    start_y = add_input<std::int32_t>("start_y");
    end_y = add_input<std::int32_t>("end_y");
    average = add_output<Buffer<>>("average", Float(64), 0);
  }

  void generate() {
    m_area = {*start_x, *start_y, max(*end_x - *start_x, 0), max(*end_y - *start_y, 0)};
    const MeanTerm term(m_area.width, m_area.height);
    m_lanes.Define(*input, m_area, {Expr(0.0)},
                   [&](const RowLanes::Values& sum, const Expr& v, const Expr& first) {
                     return RowLanes::Values{Exact(sum[0] + term(v, first))};
                   });
    m_rows(m_row) = m_lanes.Fold(m_row, AddValues)[0];
    m_total() = Expr(0.0);
    const RDom rows(0, m_area.height, "rows");
    m_total() = Exact(m_total() + m_rows(rows));
    (*average)() = select(m_area.width > 0 && m_area.height > 0, m_total(), Expr(0.0));
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

HALIDE_REGISTER_GENERATOR(Average, average)
