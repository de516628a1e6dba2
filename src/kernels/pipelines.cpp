#include "kernels/pipelines.h"

#include "kernel_headers.h"

namespace korin::kernels {

#define KORIN_ELEMENT(name, T)                                                          \
  template <>                                                                           \
  const ElementPipelines<T>& Pipelines<T>() {                                           \
    static constexpr ElementPipelines<T> pipelines = {                                  \
        average_##name,   getminmax_##name,         getminmaxavr_##name, getdev_##name, \
        histogram_##name, histogram_inverse_##name, fill_##name};                       \
    return pipelines;                                                                   \
  }
KORIN_FOR_EACH_ELEMENT(KORIN_ELEMENT)

#define KORIN_TO_INTEGER(from, S, to, D)                                                         \
  template <>                                                                                    \
  const IntegerConversionPipelines& IntegerConversion<S, D>() {                                  \
    static constexpr IntegerConversionPipelines pipelines = {                                    \
        changebits_normalize_mapping_##from##_to_##to, changebits_shift_clamp_##from##_to_##to}; \
    return pipelines;                                                                            \
  }
#define KORIN_FROM(from, S) KORIN_FOR_EACH_INTEGER_WITH(KORIN_TO_INTEGER, from, S)
KORIN_FOR_EACH_ELEMENT(KORIN_FROM)

#define KORIN_CAST(from, S, to, D)                  \
  template <>                                       \
  StaticCastPipeline StaticCastEntry<S, D>() {      \
    return changebits_static_cast_##from##_to_##to; \
  }
KORIN_FOR_EACH_CAST(KORIN_CAST)

const UntypedPipelines& Untyped() {
  static constexpr UntypedPipelines pipelines = {copy_uint8, paste_float};
  return pipelines;
}

}  // namespace korin::kernels
