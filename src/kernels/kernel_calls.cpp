#include "kernels/kernel_calls.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>
#include <vector>

#include "kernels/byte_copy.h"
#include "kernels/parallel.h"
#include "kernels/pipelines.h"
#include "kernels/pixel_buffer.h"
#include "kernels/row_batch.h"
#include "kernels/row_sums.h"
#include "kernels/runtime_setup.h"

namespace korin::kernels {
namespace {

constexpr bool kSuccess(int code) { return code == 0; }

// The shape of a call and how it is cut into bands.
class Bands {
 public:
  Bands(std::int64_t width, std::int64_t lines, std::int64_t bandBytes)
      : m_width(width), m_lines(lines), m_bandLines(lines), m_bandBytes(bandBytes) {}

  // Adds a buffer that is walked line by line.
  Bands& With(const void* pixels, std::int64_t stride, std::size_t sampleBytes) {
    if (Empty()) return *this;
    const auto bytes = static_cast<std::int64_t>(sampleBytes);
    if (pixels == nullptr || stride < m_width || stride > m_bandBytes / bytes) {
      m_valid = false;
    } else {
      m_bandLines = std::min(m_bandLines, m_bandBytes / (stride * bytes));
    }
    return *this;
  }

  bool Empty() const { return m_width <= 0 || m_lines <= 0; }
  bool Valid() const { return m_valid; }
  bool IsOne() const { return m_bandLines == m_lines; }
  std::int64_t Lines() const { return m_lines; }

  // Calls band(first line, lines) for each band until one fails.
  template <typename Band>
  bool ForEach(Band band) const {
    if (!m_valid) return false;
    if (Empty()) return true;
    EnsureKernelRuntime();
    for (std::int64_t y = 0; y < m_lines; y += m_bandLines) {
      if (!band(y, static_cast<std::int32_t>(std::min(m_bandLines, m_lines - y)))) return false;
    }
    return true;
  }

 private:
  std::int64_t m_width;
  std::int64_t m_lines;
  std::int64_t m_bandLines;
  std::int64_t m_bandBytes;
  bool m_valid = true;
};

constexpr std::int64_t kMostBytes = std::numeric_limits<std::int64_t>::max();

std::int32_t Narrow(std::int64_t v) { return static_cast<std::int32_t>(v); }

template <typename T>
T NeutralMinimum() {
  using Limits = std::numeric_limits<T>;
  return Limits::has_infinity ? Limits::infinity() : Limits::max();
}
template <typename T>
T NeutralMaximum() {
  using Limits = std::numeric_limits<T>;
  return Limits::has_infinity ? -Limits::infinity() : Limits::lowest();
}

// Sum of `rowSum(row)` over all rows, added in row order as one pipeline call
// would. False without memory for the rows' sums.
template <typename T, typename RowSum>
bool SumOfRows(const T* pixels, std::int64_t lines, std::int64_t stride, RowSum rowSum,
               double& total) {
  std::vector<double> sums;
  try {
    sums.resize(static_cast<std::size_t>(lines));
  } catch (const std::bad_alloc&) {
    return false;
  }
  ParallelFor(lines, [&](std::int64_t y) {
    sums[static_cast<std::size_t>(y)] = rowSum(pixels + y * stride);
  });
  total = 0.0;
  for (const double sum : sums) total += sum;
  return true;
}

double CountOf(std::int64_t width, std::int64_t lines) {
  return static_cast<double>(width) * static_cast<double>(lines);
}

// Runs call(source buffer, destination buffer) over the bands of two planes.
template <typename S, typename D, typename Call>
bool Convert(const S* source, D* destination, std::int64_t width, std::int64_t lines,
             std::int64_t sourceStride, std::int64_t destinationStride, std::int64_t bandBytes,
             Call call) {
  const Bands bands = Bands(width, lines, bandBytes)
                          .With(source, sourceStride, sizeof(S))
                          .With(destination, destinationStride, sizeof(D));
  return bands.ForEach([&](std::int64_t y, std::int32_t count) {
    PixelBuffer from(source + y * sourceStride, Narrow(width), count, Narrow(sourceStride));
    PixelBuffer to(destination + y * destinationStride, Narrow(width), count,
                   Narrow(destinationStride));
    return kSuccess(call(from, to));
  });
}

// The same for a pipeline that makes a table of all values where the plane is large.
// One of 16-bit values fills the caches of the thread that makes it, and others fetch it
// from there: for several threads it pays at twice the samples only. Halves have none.
template <typename S, typename D, typename Call>
bool ConvertValues(const S* source, D* destination, std::int64_t width, std::int64_t lines,
                   std::int64_t sourceStride, std::int64_t destinationStride,
                   std::int64_t bandBytes, Call call) {
  constexpr std::int64_t kTableSamples = 1 << 18;
  const auto convert = [&](std::int64_t y, std::int64_t count) {
    return Convert(source + y * sourceStride, destination + y * destinationStride, width, count,
                   sourceStride, destinationStride, bandBytes, call);
  };
  if constexpr (std::is_integral_v<S> && sizeof(S) == 2) {
    if (width > 0 && lines > 1 && lines >= kTableSamples / width &&
        lines < 2 * kTableSamples / width && GetThreadCount() > 1) {
      return convert(0, lines / 2) && convert(lines / 2, lines - lines / 2);
    }
  }
  return convert(0, lines);
}

}  // namespace

template <typename T>
bool MinMax(const T* pixels, std::int64_t width, std::int64_t lines, std::int64_t stride,
            T& minimum, T& maximum, std::int64_t bandBytes) {
  minimum = NeutralMinimum<T>();
  maximum = NeutralMaximum<T>();
  // The order of samples does not matter, so lines side by side are one long line.
  const auto sampleBytes = static_cast<std::int64_t>(sizeof(T));
  if (width > 0 && lines > 0 && stride == width && lines <= bandBytes / sampleBytes / width) {
    stride = width *= lines;
    lines = 1;
  }
  const Bands bands = Bands(width, lines, bandBytes).With(pixels, stride, sizeof(T));
  return bands.ForEach([&](std::int64_t y, std::int32_t count) {
    PixelBuffer input(pixels + y * stride, Narrow(width), count, Narrow(stride));
    T low{};
    T high{};
    PixelBuffer lowest(&low);
    PixelBuffer highest(&high);
    if (!kSuccess(Pipelines<T>().getminmax(input, lowest, highest))) return false;
    if (low < minimum) minimum = low;
    if (high > maximum) maximum = high;
    return true;
  });
}

template <typename T>
bool MinMaxAverage(const T* pixels, std::int64_t width, std::int64_t lines, std::int64_t stride,
                   T& minimum, T& maximum, double& average, std::int64_t bandBytes) {
  minimum = NeutralMinimum<T>();
  maximum = NeutralMaximum<T>();
  average = 0.0;
  const Bands bands = Bands(width, lines, bandBytes).With(pixels, stride, sizeof(T));
  if (bands.Valid() && !bands.IsOne()) {
    return MinMax(pixels, width, lines, stride, minimum, maximum, bandBytes) &&
           Average(pixels, width, lines, stride, average, bandBytes);
  }
  return bands.ForEach([&](std::int64_t, std::int32_t count) {
    PixelBuffer input(pixels, Narrow(width), count, Narrow(stride));
    PixelBuffer lowest(&minimum);
    PixelBuffer highest(&maximum);
    PixelBuffer mean(&average);
    return kSuccess(Pipelines<T>().getminmaxavr(input, lowest, highest, mean));
  });
}

template <typename T>
bool Average(const T* pixels, std::int64_t width, std::int64_t lines, std::int64_t stride,
             double& average, std::int64_t bandBytes) {
  average = 0.0;
  const Bands bands = Bands(width, lines, bandBytes).With(pixels, stride, sizeof(T));
  if (bands.Valid() && !bands.IsOne()) {
    const double n = CountOf(width, lines);
    return SumOfRows(
        pixels, lines, stride, [=](const T* row) { return RowScaledSum(row, width, n); }, average);
  }
  return bands.ForEach([&](std::int64_t, std::int32_t count) {
    PixelBuffer input(pixels, Narrow(width), count, Narrow(stride));
    PixelBuffer mean(&average);
    return kSuccess(Pipelines<T>().average(input, 0, Narrow(width), 0, count, mean));
  });
}

template <typename T>
bool Deviation(const T* pixels, std::int64_t width, std::int64_t lines, std::int64_t stride,
               double mean, double& deviation, std::int64_t bandBytes) {
  deviation = 0.0;
  const Bands bands = Bands(width, lines, bandBytes).With(pixels, stride, sizeof(T));
  if (bands.Valid() && !bands.IsOne()) {
    const double n = CountOf(width, lines);
    double meanSquare = 0.0;
    if (!SumOfRows(
            pixels, lines, stride, [=](const T* row) { return RowScaledSquareSum(row, width, n); },
            meanSquare)) {
      return false;
    }
    deviation = std::sqrt(meanSquare - mean * mean);
    return true;
  }
  return bands.ForEach([&](std::int64_t, std::int32_t count) {
    PixelBuffer input(pixels, Narrow(width), count, Narrow(stride));
    PixelBuffer output(&deviation);
    return kSuccess(Pipelines<T>().getdev(input, mean, output));
  });
}

template <typename T>
bool Histogram(const T* pixels, std::int64_t width, std::int64_t lines, std::int64_t stride,
               double fMin, double fMax, std::int32_t bins, bool inverse, std::int32_t* counts,
               std::int64_t bandBytes) {
  if (bins <= 0) return true;
  if (bins > kMostBins || counts == nullptr) return false;
  const Bands bands = Bands(width, lines, bandBytes).With(pixels, stride, sizeof(T));
  if (bands.Empty()) std::fill_n(counts, bins, 0);
  const auto pipeline = inverse ? Pipelines<T>().histogram_inverse : Pipelines<T>().histogram;
  std::vector<std::int32_t> part;
  return bands.ForEach([&](std::int64_t y, std::int32_t count) {
    if (y != 0) part.resize(static_cast<std::size_t>(bins));
    std::int32_t* const target = y == 0 ? counts : part.data();
    PixelBuffer input(pixels + y * stride, Narrow(width), count, Narrow(stride));
    PixelBuffer output(target, bins);
    if (!kSuccess(pipeline(input, fMin, fMax, bins, output))) return false;
    if (y == 0) return true;
    for (std::size_t i = 0; i < part.size(); ++i) {
      counts[i] = static_cast<std::int32_t>(static_cast<std::uint32_t>(counts[i]) +
                                            static_cast<std::uint32_t>(part[i]));
    }
    return true;
  });
}

template <typename T>
bool Fill(T* pixels, std::int64_t width, std::int64_t lines, std::int64_t stride, T value,
          std::int64_t bandBytes) {
  if constexpr (sizeof(T) == 1) {
    // Lines side by side are one stretch of bytes, which the standard library sets
    // without reading first what it overwrites.
    if (pixels != nullptr && width > 0 && width == stride && width <= bandBytes) {
      ParallelRows(0, lines, width, [=](std::int64_t, std::int64_t first, std::int64_t end) {
        std::memset(pixels + first * width, value, static_cast<std::size_t>((end - first) * width));
      });
      return true;
    }
  }
  const Bands bands = Bands(width, lines, bandBytes).With(pixels, stride, sizeof(T));
  return bands.ForEach([&](std::int64_t y, std::int32_t count) {
    PixelBuffer output(pixels + y * stride, Narrow(width), count, Narrow(stride));
    return kSuccess(Pipelines<T>().fill(value, output));
  });
}

bool CopyBytes(const void* source, void* destination, std::int64_t width, std::int64_t lines,
               std::int64_t sourceStride, std::int64_t destinationStride, std::int64_t bandBytes) {
  // Lines side by side are one stretch of bytes.
  const bool together = width == sourceStride && width == destinationStride && lines > 0 &&
                        width >= kStreamedBytes / lines && width <= bandBytes;
  if (together && source != nullptr && destination != nullptr && width <= kMostBytes / lines) {
    try {
      CopyOnThreads(
          {{static_cast<BYTE*>(destination), static_cast<const BYTE*>(source), width * lines}},
          true);
      return true;
    } catch (const std::bad_alloc&) {
      return false;
    }
  }
  return Convert(
      static_cast<const std::uint8_t*>(source), static_cast<std::uint8_t*>(destination), width,
      lines, sourceStride, destinationStride, bandBytes,
      [](halide_buffer_t* from, halide_buffer_t* to) { return Untyped().copy_uint8(from, to); });
}

bool PasteFloat(const FloatPlane<const float>& source, const FloatPlane<float>& destination,
                std::int64_t startX, std::int64_t endX, std::int64_t startY, std::int64_t endY,
                std::int64_t shiftX, std::int64_t shiftY) {
  // Cut to what both planes have first: the pipeline then sees one small rectangle
  // on either side, with nothing left to overflow.
  const auto overlap = [](std::int64_t start, std::int64_t end, std::int64_t shift,
                          std::int64_t from, std::int64_t to) {
    constexpr std::int64_t kFar = std::int64_t{1} << 62;
    shift = std::clamp(shift, -kFar, kFar);
    const std::int64_t first = std::max({start, std::int64_t{0}, -shift});
    const std::int64_t last = std::min({end, from, to - shift});
    return std::pair(first, last > first ? last - first : 0);
  };
  const auto [x, width] = overlap(startX, endX, shiftX, source.width, destination.width);
  const auto [y, lines] = overlap(startY, endY, shiftY, source.lines, destination.lines);
  if (width <= 0 || lines <= 0) return true;
  if (source.pixels == nullptr || destination.pixels == nullptr) return false;
  const float* const from = source.pixels + y * source.stride + x;
  float* const to = destination.pixels + (y + shiftY) * destination.stride + x + shiftX;
  return Convert(from, to, width, lines, source.stride, destination.stride, kBandBytes,
                 [&, pasted = Narrow(width)](halide_buffer_t* input, halide_buffer_t* output) {
                   return Untyped().paste_float(input, 0, pasted, 0, input->dim[1].extent, 0, 0,
                                                output);
                 });
}

template <typename S, typename D>
bool NormalizeMapping(const S* source, D* destination, std::int64_t width, std::int64_t lines,
                      std::int64_t sourceStride, std::int64_t destinationStride, double bscale,
                      double bzero, double minimum, double maximum, std::int64_t bandBytes) {
  return ConvertValues(source, destination, width, lines, sourceStride, destinationStride,
                       bandBytes, [&](halide_buffer_t* from, halide_buffer_t* to) {
                         return IntegerConversion<S, D>().normalize_mapping(from, bscale, bzero,
                                                                            minimum, maximum, to);
                       });
}

template <typename S, typename D>
bool ShiftClamp(const S* source, D* destination, std::int64_t width, std::int64_t lines,
                std::int64_t sourceStride, std::int64_t destinationStride, double bscale,
                double bzero, double shift, std::int64_t bandBytes) {
  return ConvertValues(source, destination, width, lines, sourceStride, destinationStride,
                       bandBytes, [&](halide_buffer_t* from, halide_buffer_t* to) {
                         return IntegerConversion<S, D>().shift_clamp(from, bscale, bzero, shift,
                                                                      to);
                       });
}

template <typename S, typename D>
bool StaticCast(const S* source, D* destination, std::int64_t width, std::int64_t lines,
                std::int64_t sourceStride, std::int64_t destinationStride, std::int64_t bandBytes) {
  static_assert(kHasStaticCast<S, D>);
  return Convert(
      source, destination, width, lines, sourceStride, destinationStride, bandBytes,
      [](halide_buffer_t* from, halide_buffer_t* to) { return StaticCastEntry<S, D>()(from, to); });
}

#define KORIN_LAYOUT std::int64_t, std::int64_t, std::int64_t
#define KORIN_ELEMENT(name, T)                                                           \
  template bool MinMax<T>(const T*, KORIN_LAYOUT, T&, T&, std::int64_t);                 \
  template bool MinMaxAverage<T>(const T*, KORIN_LAYOUT, T&, T&, double&, std::int64_t); \
  template bool Average<T>(const T*, KORIN_LAYOUT, double&, std::int64_t);               \
  template bool Deviation<T>(const T*, KORIN_LAYOUT, double, double&, std::int64_t);     \
  template bool Histogram<T>(const T*, KORIN_LAYOUT, double, double, std::int32_t, bool, \
                             std::int32_t*, std::int64_t);                               \
  template bool Fill<T>(T*, KORIN_LAYOUT, T, std::int64_t);
KORIN_FOR_EACH_ELEMENT(KORIN_ELEMENT)

#define KORIN_TO_INTEGER(from, S, to, D)                                                           \
  template bool NormalizeMapping<S, D>(const S*, D*, KORIN_LAYOUT, std::int64_t, double, double,   \
                                       double, double, std::int64_t);                              \
  template bool ShiftClamp<S, D>(const S*, D*, KORIN_LAYOUT, std::int64_t, double, double, double, \
                                 std::int64_t);
#define KORIN_FROM(from, S) KORIN_FOR_EACH_INTEGER_WITH(KORIN_TO_INTEGER, from, S)
KORIN_FOR_EACH_ELEMENT(KORIN_FROM)

#define KORIN_CAST(from, S, to, D) \
  template bool StaticCast<S, D>(const S*, D*, KORIN_LAYOUT, std::int64_t, std::int64_t);
KORIN_FOR_EACH_CAST(KORIN_CAST)

}  // namespace korin::kernels
