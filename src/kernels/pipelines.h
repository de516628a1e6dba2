#pragma once

#include <HalideRuntime.h>

#include <cstdint>

#include "kernels/element.h"

// The generated pipelines by element type. Each function is an entry, which
// forwards to the variant that the processor can run, or one of the variants.
// All return 0 or a code of the pipelines' runtime.
namespace korin::kernels {

template <typename T>
struct ElementPipelines {
  using Buffer = halide_buffer_t*;
  // input, start_x, end_x, start_y, end_y, average
  int (*average)(Buffer, std::int32_t, std::int32_t, std::int32_t, std::int32_t, Buffer);
  int (*getminmax)(Buffer, Buffer minimum, Buffer maximum);
  int (*getminmaxavr)(Buffer, Buffer minimum, Buffer maximum, Buffer average);
  int (*getdev)(Buffer, double average, Buffer deviation);
  // input, fMin, fMax, nBins, histogram
  int (*histogram)(Buffer, double, double, std::int32_t, Buffer);
  int (*histogram_inverse)(Buffer, double, double, std::int32_t, Buffer);
  int (*fill)(T, Buffer);
};

struct IntegerConversionPipelines {
  using Buffer = halide_buffer_t*;
  // input, bscale, bzero, minimum, maximum, output
  int (*normalize_mapping)(Buffer, double, double, double, double, Buffer);
  // input, bscale, bzero, shift, output
  int (*shift_clamp)(Buffer, double, double, double, Buffer);
};

struct UntypedPipelines {
  using Buffer = halide_buffer_t*;
  int (*copy_uint8)(Buffer, Buffer);
  // input, start_x, end_x, start_y, end_y, shift_x, shift_y, output
  int (*paste_float)(Buffer, std::int32_t, std::int32_t, std::int32_t, std::int32_t, std::int32_t,
                     std::int32_t, Buffer);
};

using StaticCastPipeline = int (*)(halide_buffer_t*, halide_buffer_t*);

// The entries. Defined for every element type, every pair that ends in an
// integer, and each of the 12 casts.
template <typename T>
const ElementPipelines<T>& Pipelines();
template <typename S, typename D>
const IntegerConversionPipelines& IntegerConversion();
template <typename S, typename D>
StaticCastPipeline StaticCastEntry();
const UntypedPipelines& Untyped();

}  // namespace korin::kernels
