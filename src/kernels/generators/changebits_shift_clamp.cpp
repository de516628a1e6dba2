#include "kernel_generator.h"

namespace {

using namespace Halide;
using namespace korin::generators;

// Keeps physical values, moved by a constant and clipped into an integer type.
// Rows of 64 samples and more add (bzero + shift) in one step, narrower rows add
// the two one after the other; both orders are part of the result.
class ShiftClamp : public Generator<ShiftClamp> {
 public:
  GeneratorParam<Type> from{"from", UInt(8)};
  GeneratorParam<Type> to{"to", UInt(8)};

  Input<Buffer<>>* input = nullptr;
  Input<double>* bscale = nullptr;
  Input<double>* bzero = nullptr;
  Input<double>* shift = nullptr;
  Output<Buffer<>>* changebits = nullptr;

  void configure() {
    input = add_input<Buffer<>>("input", from, 2);
    bscale = add_input<double>("bscale");
    bzero = add_input<double>("bzero");
    shift = add_input<double>("shift");
    changebits = add_output<Buffer<>>("changebits", to, 2);
  }

  void generate() {
    const Type target = to;
    const Expr low = cast<double>(target.min());
    const Expr high = cast<double>(target.max());
    const Expr width = input->width();
    const Expr offset = Exact(*bzero + *shift);
    m_wide = width >= kWideRow;
    const Expr large = cast<std::int64_t>(width) * input->height() >= kTableSamples;
    m_loop.Define(*changebits, *input, from, m_wide && large, [&](const Expr& v) {
      const Expr once = Exact(v * *bscale + offset);
      const Expr twice = Exact(v * *bscale + *bzero + *shift);
      return TruncateTo(target, ClampHighFirst(select(m_wide, once, twice), low, high));
    });
  }

  void schedule() {
    m_loop.Schedule(*changebits, input->width(), input->height(), kConversionLanes, {m_wide});
  }

 private:
  static constexpr int kWideRow = 64;
  SampleLoop m_loop;
  Expr m_wide;
};

}  // namespace

HALIDE_REGISTER_GENERATOR(ShiftClamp, changebits_shift_clamp)
