#include "kernel_generator.h"

namespace {

using namespace Halide;
using namespace korin::generators;

// Every sample of the buffer becomes `value`.
class Fill : public Generator<Fill> {
 public:
  GeneratorParam<Type> element{"element", UInt(8)};

  Input<Expr>* value = nullptr;
  Output<Buffer<>>* fill = nullptr;

  void configure() {
    value = add_input<Expr>("value", element);
    fill = add_output<Buffer<>>("fill", element, 2);
  }

  void generate() { (*fill)(m_x, m_y) = Expr(*value); }

  void schedule() {
    const Type type = element;
    ScheduleRows(Func(*fill), m_x, m_y, fill->width(), fill->height(), 64 / type.bytes());
  }

 private:
  Var m_x{"x"}, m_y{"y"};
};

}  // namespace

HALIDE_REGISTER_GENERATOR(Fill, fill)
