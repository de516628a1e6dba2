#include "kernel_generator.h"

namespace {

using namespace Halide;
using namespace korin::generators;

// Counts the samples of a buffer in nBins bins from fMin upward, or mirrored. The
// pipeline checks and describes the buffers; the library counts (histogram_stage.cpp).
class Histogram : public Generator<Histogram> {
 public:
  GeneratorParam<Type> element{"element", UInt(8)};
  GeneratorParam<bool> inverse{"inverse", false};

  Input<Buffer<>>* input = nullptr;
  Input<double>* fMin = nullptr;
  Input<double>* fMax = nullptr;
  Input<std::int32_t>* nBins = nullptr;
  Output<Buffer<>>* histogram = nullptr;

  void configure() {
    input = add_input<Buffer<>>("input", element, 2);
    fMin = add_input<double>("fMin");
    fMax = add_input<double>("fMax");
    nBins = add_input<std::int32_t>("nBins");
    histogram = add_output<Buffer<>>("histogram", Int(32), 1);
  }

  void generate() {
    const OutputImageParam& in = *input;
    Func(*histogram)
        .define_extern("korin_histogram",
                       {in, in.dim(0).min(), in.width(), in.dim(1).min(), in.height(), *fMin, *fMax,
                        *nBins, Expr(cast<bool>(static_cast<bool>(inverse)))},
                       Int(32), 1, NameMangling::C);
  }

  void schedule() { histogram->dim(0).set_bounds(0, *nBins); }
};

}  // namespace

HALIDE_REGISTER_GENERATOR(Histogram, histogram)
