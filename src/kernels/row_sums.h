#pragma once

#include <cstdint>

// Sums over one row of samples, in exactly the arithmetic of the sum pipelines:
// eight lanes by x mod 8, folded 4 apart, then 2, then 1. Adding the sums of all
// rows of a plane in row order from 0.0 gives the pipelines' result to the last
// bit, however the plane lies in memory. Defined for the seven element types.
namespace korin::kernels {

// Sum of v / n, as an average of n samples takes it: v * (1 / n), except that the
// first sample of a row of odd length is divided.
template <typename T>
double RowScaledSum(const T* row, std::int64_t width, double n);

// Sum of v * v * (1 / n).
template <typename T>
double RowScaledSquareSum(const T* row, std::int64_t width, double n);

// Sums of p and of p * p, where p = v * bscale + bzero.
template <typename T>
double RowPhysicalSum(const T* row, std::int64_t width, double bscale, double bzero);
template <typename T>
double RowPhysicalSquareSum(const T* row, std::int64_t width, double bscale, double bzero);

}  // namespace korin::kernels
