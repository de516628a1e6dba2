#pragma once

#include <cstdint>
#include <type_traits>

#include "kernels/element.h"

// The entries of the pipelines choose between their SSE4.1 and their AVX variant
// once per process, so this program runs once for each: with KORIN_KERNEL_VARIANT
// set to "sse41" the processor is said to have no AVX, else it is asked.
namespace korin::kernels::test {

// The variant under test.
const char* VariantUnderTest();

// Calls f(std::type_identity<T>{}) for each element type.
template <typename F>
void ForEachElement(F f) {
#define KORIN_X(name, T) f(std::type_identity<T>{});
  KORIN_FOR_EACH_ELEMENT(KORIN_X)
#undef KORIN_X
}
// Calls f(std::type_identity<D>{}) for each integer type.
template <typename F>
void ForEachInteger(F f) {
#define KORIN_X(name, T) f(std::type_identity<T>{});
  KORIN_FOR_EACH_INTEGER(KORIN_X)
#undef KORIN_X
}

}  // namespace korin::kernels::test
