#include "kernel_generator.h"

namespace {

using namespace Halide;
using namespace korin::generators;

// The stored value as the nearest value of a floating-point type.
class StaticCast : public Generator<StaticCast> {
 public:
  GeneratorParam<Type> from{"from", UInt(8)};
  GeneratorParam<Type> to{"to", Float(32)};

  Input<Buffer<>>* input = nullptr;
  Output<Buffer<>>* changebits = nullptr;

  void configure() {
    input = add_input<Buffer<>>("input", from, 2);
    changebits = add_output<Buffer<>>("changebits", to, 2);
  }

  void generate() {
    const Type source = from;
    const bool small = source.is_int_or_uint() && source.bits() < 32;
    m_loop.Define(*changebits, *input, [&](const Expr& v) {
      return Exact(cast(to, small ? cast<std::int32_t>(v) : v));
    });
  }

  void schedule() {
    m_loop.Schedule(*changebits, input->width(), input->height(), kConversionLanes);
  }

 private:
  SampleLoop m_loop;
};

}  // namespace

HALIDE_REGISTER_GENERATOR(StaticCast, changebits_static_cast)
