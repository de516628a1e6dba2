#include "kernel_generator.h"

namespace {

using namespace Halide;
using namespace korin::generators;

// Writes the samples of the input rectangle [start_x, end_x) x [start_y, end_y)
// at their own position plus (shift_x, shift_y). Samples that would fall outside
// the output, or that the input does not have, are left out; every other sample
// of the output stays as it is.
class Paste : public Generator<Paste> {
 public:
  Input<Buffer<float>> input{"input", 2};
  Input<std::int32_t> start_x{"start_x"};
  Input<std::int32_t> end_x{"end_x"};
  Input<std::int32_t> start_y{"start_y"};
  Input<std::int32_t> end_y{"end_y"};
  Input<std::int32_t> shift_x{"shift_x"};
  Input<std::int32_t> shift_y{"shift_y"};
  Output<Buffer<float>> paste{"paste", 2};

  void generate() {
    paste(m_x, m_y) = undef<float>();
    m_columns = Overlap(start_x, end_x, shift_x, 0);
    m_lines = Overlap(start_y, end_y, shift_y, 1);
    m_area = RDom({m_columns, m_lines}, "area");
    paste(m_area.x + shift_x, m_area.y + shift_y) = input(m_area.x, m_area.y);
  }

  void schedule() {
    paste.update().allow_race_conditions().vectorize(m_area.x, 8, TailStrategy::GuardWithIf);
  }

 private:
  // The input positions along one dimension that exist and land in the output.
  Range Overlap(const Expr& start, const Expr& end, const Expr& shift, int dim) {
    const auto& from = input.dim(dim);
    const OutputImageParam& out = paste;
    const Expr first = max(start, max(from.min(), out.dim(dim).min() - shift));
    const Expr last = min(
        end, min(from.min() + from.extent(), out.dim(dim).min() + out.dim(dim).extent() - shift));
    return Range(first, max(last - first, 0));
  }

  Var m_x{"x"}, m_y{"y"};
  Range m_columns, m_lines;
  RDom m_area;
};

}  // namespace

HALIDE_REGISTER_GENERATOR(Paste, paste)
