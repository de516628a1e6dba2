#pragma once

#include <cstdint>

#include "kernels/element.h"

// The pixel kernels as the rest of the library calls them: `lines` lines of
// `width` samples, `stride` samples from one line to the next, all in 64 bits.
// Each call is cut into bands of lines that the pipelines can address; the cut
// never shows in a result.
//
// All return false, with the outputs unspecified, when a pointer is null, the
// stride is less than the width, a single line is too long for a pipeline or a
// pipeline fails. No samples (width or lines <= 0): true, nothing is written
// except where a function says so. Rows run on the pool of parallel.h; any thread
// may call.
namespace korin::kernels {

// Bytes of a band stay below this: pipelines index with 32 bits.
inline constexpr std::int64_t kBandBytes = (std::int64_t{1} << 31) - 1;

// More bins than this do not fit a pipeline's output.
inline constexpr std::int32_t kMostBins = (1 << 29) - 1;

// Smallest and largest sample. NaN is skipped and a zero is +0; no samples, or
// none but NaN, give the neutral pair (largest, smallest), infinities for
// floating-point types.
template <typename T>
[[nodiscard]] bool MinMax(const T* pixels, std::int64_t width, std::int64_t lines,
                          std::int64_t stride, T& minimum, T& maximum,
                          std::int64_t bandBytes = kBandBytes);

// The same with the mean as Average gives it.
template <typename T>
[[nodiscard]] bool MinMaxAverage(const T* pixels, std::int64_t width, std::int64_t lines,
                                 std::int64_t stride, T& minimum, T& maximum, double& average,
                                 std::int64_t bandBytes = kBandBytes);

// Sum of v / n over all n samples; 0 for none.
template <typename T>
[[nodiscard]] bool Average(const T* pixels, std::int64_t width, std::int64_t lines,
                           std::int64_t stride, double& average,
                           std::int64_t bandBytes = kBandBytes);

// sqrt(sum of v * v / n - mean * mean); a NaN when that is negative, 0 for no
// samples.
template <typename T>
[[nodiscard]] bool Deviation(const T* pixels, std::int64_t width, std::int64_t lines,
                             std::int64_t stride, double mean, double& deviation,
                             std::int64_t bandBytes = kBandBytes);

// Counts into `bins` bins from fMin, each max((fMax - fMin) / bins, 1) wide;
// `inverse` mirrors them. Samples outside are not counted. `counts` is
// overwritten, zeros included when there are no samples; nothing is written for
// bins <= 0. False beyond kMostBins.
template <typename T>
[[nodiscard]] bool Histogram(const T* pixels, std::int64_t width, std::int64_t lines,
                             std::int64_t stride, double fMin, double fMax, std::int32_t bins,
                             bool inverse, std::int32_t* counts,
                             std::int64_t bandBytes = kBandBytes);

template <typename T>
[[nodiscard]] bool Fill(T* pixels, std::int64_t width, std::int64_t lines, std::int64_t stride,
                        T value, std::int64_t bandBytes = kBandBytes);

// `width` and the strides in bytes. The areas do not overlap.
[[nodiscard]] bool CopyBytes(const void* source, void* destination, std::int64_t width,
                             std::int64_t lines, std::int64_t sourceStride,
                             std::int64_t destinationStride, std::int64_t bandBytes = kBandBytes);

// One plane of float samples, for PasteFloat.
template <typename Sample>
struct FloatPlane {
  Sample* pixels = nullptr;
  std::int64_t width = 0;
  std::int64_t lines = 0;
  std::int64_t stride = 0;
};

// Writes the samples of [startX, endX) x [startY, endY) of the source at their own
// position plus (shiftX, shiftY) into the destination; samples that the source
// does not have or that fall outside the destination are left out. The areas do
// not overlap. On the calling thread.
[[nodiscard]] bool PasteFloat(const FloatPlane<const float>& source,
                              const FloatPlane<float>& destination, std::int64_t startX,
                              std::int64_t endX, std::int64_t startY, std::int64_t endY,
                              std::int64_t shiftX, std::int64_t shiftY);

// Maps physical values (v * bscale + bzero) of [minimum, maximum] onto the whole
// range of D, truncating. S: any element type, D: any integer type. Samples with a
// NaN anywhere get the highest code.
template <typename S, typename D>
[[nodiscard]] bool NormalizeMapping(const S* source, D* destination, std::int64_t width,
                                    std::int64_t lines, std::int64_t sourceStride,
                                    std::int64_t destinationStride, double bscale, double bzero,
                                    double minimum, double maximum,
                                    std::int64_t bandBytes = kBandBytes);

// Physical values plus `shift`, clipped into D and truncated.
template <typename S, typename D>
[[nodiscard]] bool ShiftClamp(const S* source, D* destination, std::int64_t width,
                              std::int64_t lines, std::int64_t sourceStride,
                              std::int64_t destinationStride, double bscale, double bzero,
                              double shift, std::int64_t bandBytes = kBandBytes);

// True for the 12 pairs of StaticCast: any other element type to a floating-point
// type.
template <typename S, typename D>
inline constexpr bool kHasStaticCast = std::is_floating_point_v<D> && !std::is_same_v<S, D>;

// Stored values as the nearest values of D.
template <typename S, typename D>
[[nodiscard]] bool StaticCast(const S* source, D* destination, std::int64_t width,
                              std::int64_t lines, std::int64_t sourceStride,
                              std::int64_t destinationStride, std::int64_t bandBytes = kBandBytes);

}  // namespace korin::kernels
