#pragma once

#include <HalideRuntime.h>

#include <array>
#include <cstdint>
#include <type_traits>

namespace korin::kernels {

template <typename T>
constexpr halide_type_t PipelineTypeOf() {
  constexpr auto code = std::is_floating_point_v<T> ? halide_type_float
                        : std::is_signed_v<T>       ? halide_type_int
                                                    : halide_type_uint;
  return {code, static_cast<std::uint8_t>(8 * sizeof(T)), 1};
}

// A descriptor of samples that the caller holds, for one pipeline call. Nothing
// is copied or owned; the descriptor is neither copied nor moved, since it points
// into itself.
class PixelBuffer {
 public:
  // `lines` lines of `width` samples, `stride` samples apart.
  template <typename T>
  PixelBuffer(const T* pixels, std::int32_t width, std::int32_t lines, std::int32_t stride)
      : m_dimensions{{{0, width, 1, 0}, {0, lines, stride, 0}}} {
    Describe(pixels, 2);
  }

  // A row of `extent` samples.
  template <typename T>
  PixelBuffer(const T* values, std::int32_t extent) : m_dimensions{{{0, extent, 1, 0}, {}}} {
    Describe(values, 1);
  }

  // One variable that a pipeline writes.
  template <typename T>
  explicit PixelBuffer(const T* value) {
    Describe(value, 0);
  }

  PixelBuffer(const PixelBuffer&) = delete;
  PixelBuffer& operator=(const PixelBuffer&) = delete;

  operator halide_buffer_t*() { return &m_buffer; }

 private:
  template <typename T>
  void Describe(const T* host, std::int32_t dimensions) {
    m_buffer.host = reinterpret_cast<std::uint8_t*>(const_cast<T*>(host));
    m_buffer.type = PipelineTypeOf<T>();
    m_buffer.dimensions = dimensions;
    m_buffer.dim = m_dimensions.data();
  }

  std::array<halide_dimension_t, 2> m_dimensions{};
  halide_buffer_t m_buffer{};
};

}  // namespace korin::kernels
