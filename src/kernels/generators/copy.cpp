#include "kernel_generator.h"

namespace {

using namespace Halide;
using namespace korin::generators;

// output(x, y) = input(x, y), byte for byte.
class Copy : public Generator<Copy> {
 public:
  Input<Buffer<std::uint8_t>> input{"input", 2};
  Output<Buffer<std::uint8_t>> output{"output", 2};

  void generate() { output(m_x, m_y) = input(m_x, m_y); }

  void schedule() { ScheduleRows(Func(output), m_x, m_y, output.width(), output.height(), 64); }

 private:
  Var m_x{"x"}, m_y{"y"};
};

}  // namespace

HALIDE_REGISTER_GENERATOR(Copy, copy)
