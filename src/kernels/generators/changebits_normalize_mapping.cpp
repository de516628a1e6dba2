#include "kernel_generator.h"

namespace {

using namespace Halide;
using namespace korin::generators;

// Maps the physical range [minimum, maximum] onto the whole range of an integer
// type, truncating, so that only `maximum` itself reaches the highest code.
class NormalizeMapping : public Generator<NormalizeMapping> {
 public:
  GeneratorParam<Type> from{"from", UInt(8)};
  GeneratorParam<Type> to{"to", UInt(8)};

  Input<Buffer<>>* input = nullptr;
  Input<double>* bscale = nullptr;
  Input<double>* bzero = nullptr;
  Input<double>* minimum = nullptr;
  Input<double>* maximum = nullptr;
  Output<Buffer<>>* changebits = nullptr;

  void configure() {
    input = add_input<Buffer<>>("input", from, 2);
    bscale = add_input<double>("bscale");
    bzero = add_input<double>("bzero");
    minimum = add_input<double>("minimum");
    maximum = add_input<double>("maximum");
    changebits = add_output<Buffer<>>("changebits", to, 2);
  }

  void generate() {
    const Expr offset = Exact(*bzero - *minimum);
    const Expr span = Exact(*maximum - *minimum);
    const Type target = to;
    const Expr range = Expr(target.bits() == 8    ? 255.0
                            : target.bits() == 16 ? 65535.0
                                                  : 4294967295.0);
    const Expr lowest = Expr(target.is_uint()      ? 0.0
                             : target.bits() == 16 ? -32768.0
                                                   : -2147483648.0);
    const Expr large = cast<std::int64_t>(input->width()) * input->height() >= kTableSamples;
    m_loop.Define(*changebits, *input, from, large, [&](const Expr& v) {
      const Expr p = Exact(v * *bscale + offset);
      const Expr t = ClampHighFirst(Exact(p / span), Expr(0.0), Expr(1.0));
      const Expr scaled = Exact(t * range);
      return TruncateTo(target, target.is_uint() ? scaled : Exact(scaled + lowest));
    });
  }

  void schedule() {
    m_loop.Schedule(*changebits, input->width(), input->height(), kConversionLanes);
  }

 private:
  SampleLoop m_loop;
};

}  // namespace

HALIDE_REGISTER_GENERATOR(NormalizeMapping, changebits_normalize_mapping)
