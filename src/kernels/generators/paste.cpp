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
    const Overlap columns(input.dim(0), OutputImageParam(paste).dim(0), start_x, end_x, shift_x);
    const Overlap lines(input.dim(1), OutputImageParam(paste).dim(1), start_y, end_y, shift_y);
    m_area = RDom(0, columns.count, 0, lines.count, "area");
    paste(columns.to + m_area.x, lines.to + m_area.y) =
        input(columns.from + m_area.x, lines.from + m_area.y);
  }

  void schedule() {
    paste.update().allow_race_conditions().vectorize(m_area.x, 8, TailStrategy::GuardWithIf);
  }

 private:
  // What both buffers have of a range of one dimension; in 64 bits, since a shift
  // may be any int32.
  struct Overlap {
    Overlap(const Internal::Dimension& in, const Internal::Dimension& out, const Expr& start,
            const Expr& end, const Expr& shift) {
      const auto wide = [](const Expr& e) { return cast<std::int64_t>(e); };
      const Expr first = max(wide(start), max(wide(in.min()), wide(out.min()) - wide(shift)));
      const Expr inEnd = wide(in.min()) + in.extent();
      const Expr outEnd = wide(out.min()) + out.extent();
      const Expr last = min(wide(end), min(inEnd, outEnd - wide(shift)));
      // Where nothing overlaps, the positions still lie in (or just after) the
      // buffers: they are checked even though nothing is moved.
      from = cast<std::int32_t>(clamp(first, wide(in.min()), inEnd));
      to = cast<std::int32_t>(clamp(first + wide(shift), wide(out.min()), outEnd));
      count = cast<std::int32_t>(clamp(last - first, 0, wide(in.extent())));
    }

    Expr from, to, count;
  };

  Var m_x{"x"}, m_y{"y"};
  RDom m_area;
};

}  // namespace

HALIDE_REGISTER_GENERATOR(Paste, paste)
