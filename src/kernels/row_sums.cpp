#include "kernels/row_sums.h"

#include "kernels/row_loops.h"

namespace korin::kernels {

template <typename T>
double RowScaledSum(const T* row, std::int64_t width, double n) {
  return RowLoopsOfThisProcessor<T>().scaledSum(row, width, 1.0 / n, width % 2 == 0 ? 0.0 : n);
}

template <typename T>
double RowScaledSquareSum(const T* row, std::int64_t width, double n) {
  return RowLoopsOfThisProcessor<T>().scaledSquareSum(row, width, 1.0 / n);
}

template <typename T>
double RowPhysicalSum(const T* row, std::int64_t width, double bscale, double bzero) {
  return RowLoopsOfThisProcessor<T>().physicalSum(row, width, bscale, bzero);
}

template <typename T>
double RowPhysicalSquareSum(const T* row, std::int64_t width, double bscale, double bzero) {
  return RowLoopsOfThisProcessor<T>().physicalSquareSum(row, width, bscale, bzero);
}

#define KORIN_ELEMENT(name, T)                                               \
  template double RowScaledSum<T>(const T*, std::int64_t, double);           \
  template double RowScaledSquareSum<T>(const T*, std::int64_t, double);     \
  template double RowPhysicalSum<T>(const T*, std::int64_t, double, double); \
  template double RowPhysicalSquareSum<T>(const T*, std::int64_t, double, double);
KORIN_FOR_EACH_ELEMENT(KORIN_ELEMENT)

}  // namespace korin::kernels
