#include "kernels/row_sums.h"

#include <algorithm>

#include "kernels/element.h"

namespace korin::kernels {
namespace {

constexpr std::int64_t kLanes = 8;

// `first` is what the first sample of the row adds, `term` what every other adds.
template <typename T, typename First, typename Term>
double SumOfLanes(const T* row, std::int64_t width, First first, Term term) {
  double lanes[kLanes] = {};
  const auto value = [row](std::int64_t x) { return static_cast<double>(row[x]); };
  if (width > 0) lanes[0] += first(value(0));
  const std::int64_t head = std::min(width, kLanes);
  for (std::int64_t x = 1; x < head; ++x) lanes[x] += term(value(x));
  std::int64_t x = head;
  for (; x + kLanes <= width; x += kLanes) {
    for (std::int64_t l = 0; l < kLanes; ++l) lanes[l] += term(value(x + l));
  }
  for (std::int64_t l = 0; x + l < width; ++l) lanes[l] += term(value(x + l));
  for (std::int64_t half = kLanes / 2; half > 0; half /= 2) {
    for (std::int64_t l = 0; l < half; ++l) lanes[l] += lanes[l + half];
  }
  return lanes[0];
}

}  // namespace

template <typename T>
double RowScaledSum(const T* row, std::int64_t width, double n) {
  const double scale = 1.0 / n;
  const auto scaled = [scale](double v) { return v * scale; };
  if (width % 2 == 0) return SumOfLanes(row, width, scaled, scaled);
  return SumOfLanes(
      row, width, [n](double v) { return v / n; }, scaled);
}

template <typename T>
double RowScaledSquareSum(const T* row, std::int64_t width, double n) {
  const double scale = 1.0 / n;
  const auto term = [scale](double v) { return v * v * scale; };
  return SumOfLanes(row, width, term, term);
}

template <typename T>
double RowPhysicalSum(const T* row, std::int64_t width, double bscale, double bzero) {
  const auto term = [=](double v) { return v * bscale + bzero; };
  return SumOfLanes(row, width, term, term);
}

template <typename T>
double RowPhysicalSquareSum(const T* row, std::int64_t width, double bscale, double bzero) {
  const auto term = [=](double v) {
    const double p = v * bscale + bzero;
    return p * p;
  };
  return SumOfLanes(row, width, term, term);
}

#define KORIN_ELEMENT(name, T)                                               \
  template double RowScaledSum<T>(const T*, std::int64_t, double);           \
  template double RowScaledSquareSum<T>(const T*, std::int64_t, double);     \
  template double RowPhysicalSum<T>(const T*, std::int64_t, double, double); \
  template double RowPhysicalSquareSum<T>(const T*, std::int64_t, double, double);
KORIN_FOR_EACH_ELEMENT(KORIN_ELEMENT)

}  // namespace korin::kernels
