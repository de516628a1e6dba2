#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <type_traits>
#include <utility>

// The element kinds with the names that the pipelines use for them, in the order
// in which every typed family chooses.
#define KORIN_FOR_EACH_INTEGER(X) \
  X(uint8, std::uint8_t)          \
  X(int16, std::int16_t)          \
  X(uint16, std::uint16_t)        \
  X(int32, std::int32_t)          \
  X(uint32, std::uint32_t)
#define KORIN_FOR_EACH_ELEMENT(X) \
  KORIN_FOR_EACH_INTEGER(X)       \
  X(float, float)                 \
  X(double, double)
// The same with a first argument handed through; for pairs of types.
#define KORIN_FOR_EACH_INTEGER_WITH(X, ...) \
  X(__VA_ARGS__, uint8, std::uint8_t)       \
  X(__VA_ARGS__, int16, std::int16_t)       \
  X(__VA_ARGS__, uint16, std::uint16_t)     \
  X(__VA_ARGS__, int32, std::int32_t)       \
  X(__VA_ARGS__, uint32, std::uint32_t)
// X(source name, source type, destination name, destination type)
#define KORIN_FOR_EACH_CAST(X)             \
  X(uint8, std::uint8_t, float, float)     \
  X(uint8, std::uint8_t, double, double)   \
  X(int16, std::int16_t, float, float)     \
  X(int16, std::int16_t, double, double)   \
  X(uint16, std::uint16_t, float, float)   \
  X(uint16, std::uint16_t, double, double) \
  X(int32, std::int32_t, float, float)     \
  X(int32, std::int32_t, double, double)   \
  X(uint32, std::uint32_t, float, float)   \
  X(uint32, std::uint32_t, double, double) \
  X(float, float, double, double)          \
  X(double, double, float, float)

namespace korin {

enum class ElementKind : std::uint8_t { UInt8, Int16, UInt16, Int32, UInt32, Float, Double };

// The kind of samples of a DataType value (8, 16, 32, -32, -64); the sign matters
// for 16 and 32 only. No value for any other DataType.
[[nodiscard]] constexpr std::optional<ElementKind> ElementKindOf(int dataType, bool isSigned) {
  switch (dataType) {
    case 8:
      return ElementKind::UInt8;
    case 16:
      return isSigned ? ElementKind::Int16 : ElementKind::UInt16;
    case 32:
      return isSigned ? ElementKind::Int32 : ElementKind::UInt32;
    case -32:
      return ElementKind::Float;
    case -64:
      return ElementKind::Double;
    default:
      return std::nullopt;
  }
}

// Calls f(std::type_identity<T>{}) for the C++ type of a kind.
template <typename F>
decltype(auto) DispatchElement(ElementKind kind, F&& f) {
  switch (kind) {
    case ElementKind::UInt8:
      return f(std::type_identity<std::uint8_t>{});
    case ElementKind::Int16:
      return f(std::type_identity<std::int16_t>{});
    case ElementKind::UInt16:
      return f(std::type_identity<std::uint16_t>{});
    case ElementKind::Int32:
      return f(std::type_identity<std::int32_t>{});
    case ElementKind::UInt32:
      return f(std::type_identity<std::uint32_t>{});
    case ElementKind::Float:
      return f(std::type_identity<float>{});
    case ElementKind::Double:
      break;
  }
  return f(std::type_identity<double>{});
}

// The range of an integer destination as conversions use it.
struct DestinationRange {
  double range = 0.0;   // R = high - low
  double offset = 0.0;  // L: what the lowest code stands for
  double low = 0.0;
  double high = 0.0;
};

template <typename D>
requires std::is_integral_v<D>
constexpr DestinationRange RangeOf() {
  constexpr auto low = static_cast<double>(std::numeric_limits<D>::min());
  constexpr auto high = static_cast<double>(std::numeric_limits<D>::max());
  return {high - low, low, low, high};
}

// The range of an integer kind; all zeros for the floating-point kinds.
[[nodiscard]] inline DestinationRange RangeOf(ElementKind kind) {
  return DispatchElement(kind, []<typename T>(std::type_identity<T>) -> DestinationRange {
    if constexpr (std::is_integral_v<T>) {
      return RangeOf<T>();
    } else {
      return {};
    }
  });
}

}  // namespace korin
