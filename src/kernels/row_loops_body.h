// The loops of row_loops.h, for a file that is compiled for one instruction set and
// names it in KORIN_ROW_LOOPS (a namespace). Everything here has internal linkage
// and includes nothing with inline functions that files share: the linker must not take
// code of this instruction set for the rest of the library.
#pragma once

#include <immintrin.h>

#include "kernels/fetch_ahead.h"
#include "kernels/row_loops.h"

namespace korin::kernels::KORIN_ROW_LOOPS {
namespace {

#if defined(__AVX__)
using Vector = __m256d;
inline Vector All(double v) { return _mm256_set1_pd(v); }
inline Vector Add(Vector a, Vector b) { return _mm256_add_pd(a, b); }
inline Vector Subtract(Vector a, Vector b) { return _mm256_sub_pd(a, b); }
inline Vector Multiply(Vector a, Vector b) { return _mm256_mul_pd(a, b); }
inline Vector Divide(Vector a, Vector b) { return _mm256_div_pd(a, b); }
inline Vector LoadVector(const double* from) { return _mm256_loadu_pd(from); }
inline void Store(double* to, Vector v) { _mm256_storeu_pd(to, v); }
// The second where one of them is a NaN.
inline Vector Lower(Vector a, Vector b) { return _mm256_min_pd(a, b); }
inline Vector Higher(Vector a, Vector b) { return _mm256_max_pd(a, b); }
inline __m128i Truncated(Vector v) { return _mm256_cvttpd_epi32(v); }
inline void StoreIntegers(std::int32_t* to, __m128i v) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(to), v);
}
inline void Widen(__m128i four, Vector* to) { *to = _mm256_cvtepi32_pd(four); }
inline void Widen(__m128 four, Vector* to) { *to = _mm256_cvtps_pd(four); }
inline void Widen(const double* four, Vector* to) { *to = _mm256_loadu_pd(four); }
#else
using Vector = __m128d;
inline Vector All(double v) { return _mm_set1_pd(v); }
inline Vector Add(Vector a, Vector b) { return _mm_add_pd(a, b); }
inline Vector Subtract(Vector a, Vector b) { return _mm_sub_pd(a, b); }
inline Vector Multiply(Vector a, Vector b) { return _mm_mul_pd(a, b); }
inline Vector Divide(Vector a, Vector b) { return _mm_div_pd(a, b); }
inline Vector LoadVector(const double* from) { return _mm_loadu_pd(from); }
inline void Store(double* to, Vector v) { _mm_storeu_pd(to, v); }
// The second where one of them is a NaN.
inline Vector Lower(Vector a, Vector b) { return _mm_min_pd(a, b); }
inline Vector Higher(Vector a, Vector b) { return _mm_max_pd(a, b); }
inline __m128i Truncated(Vector v) { return _mm_cvttpd_epi32(v); }
inline void StoreIntegers(std::int32_t* to, __m128i v) {
  _mm_storel_epi64(reinterpret_cast<__m128i*>(to), v);
}
inline void Widen(__m128i four, Vector* to) {
  to[0] = _mm_cvtepi32_pd(four);
  to[1] = _mm_cvtepi32_pd(_mm_shuffle_epi32(four, 0xEE));
}
inline void Widen(__m128 four, Vector* to) {
  to[0] = _mm_cvtps_pd(four);
  to[1] = _mm_cvtps_pd(_mm_movehl_ps(four, four));
}
inline void Widen(const double* four, Vector* to) {
  to[0] = _mm_loadu_pd(four);
  to[1] = _mm_loadu_pd(four + 2);
}
#endif

constexpr int kLanes = 8;
constexpr int kVectors =
    kLanes * static_cast<int>(sizeof(double)) / static_cast<int>(sizeof(Vector));
constexpr int kInVector = kLanes / kVectors;

// Eight samples as doubles, exactly.
struct Eight {
  Vector v[kVectors];
};
inline __m128i LoadHalf(const void* from) {
  return _mm_loadl_epi64(static_cast<const __m128i*>(from));
}
inline __m128i LoadFull(const void* from) {
  return _mm_loadu_si128(static_cast<const __m128i*>(from));
}
inline Eight Widened(__m128i low, __m128i high) {
  Eight e;
  Widen(low, e.v);
  Widen(high, e.v + kVectors / 2);
  return e;
}
inline Eight Load(const std::uint8_t* p) {
  const __m128i all = LoadHalf(p);
  return Widened(_mm_cvtepu8_epi32(all), _mm_cvtepu8_epi32(_mm_srli_si128(all, 4)));
}
inline Eight Load(const std::int16_t* p) {
  return Widened(_mm_cvtepi16_epi32(LoadHalf(p)), _mm_cvtepi16_epi32(LoadHalf(p + 4)));
}
inline Eight Load(const std::uint16_t* p) {
  return Widened(_mm_cvtepu16_epi32(LoadHalf(p)), _mm_cvtepu16_epi32(LoadHalf(p + 4)));
}
inline Eight Load(const std::int32_t* p) { return Widened(LoadFull(p), LoadFull(p + 4)); }
inline Eight Load(const std::uint32_t* p) {
  // As the signed number 2^31 lower; adding that is exact.
  const __m128i turn = _mm_set1_epi32(static_cast<int>(0x80000000u));
  Eight e = Widened(_mm_xor_si128(LoadFull(p), turn), _mm_xor_si128(LoadFull(p + 4), turn));
  for (Vector& v : e.v) v = Add(v, All(2147483648.0));
  return e;
}
inline Eight Load(const float* p) {
  Eight e;
  Widen(_mm_loadu_ps(p), e.v);
  Widen(_mm_loadu_ps(p + 4), e.v + kVectors / 2);
  return e;
}
inline Eight Load(const double* p) {
  Eight e;
  Widen(p, e.v);
  Widen(p + 4, e.v + kVectors / 2);
  return e;
}

// What a sample adds to its lane; in vectors and one at a time.
struct Scaled {
  double scale;
  Vector operator()(Vector v, int = 0) const { return Multiply(v, All(scale)); }
  double operator()(double v) const { return v * scale; }
};
struct ScaledSquare {
  double scale;
  Vector operator()(Vector v, int = 0) const { return Multiply(Multiply(v, v), All(scale)); }
  double operator()(double v) const { return v * v * scale; }
};
struct Stored {
  Vector operator()(Vector v, int = 0) const { return v; }
  double operator()(double v) const { return v; }
};
struct Physical {
  double bscale, bzero;
  Vector operator()(Vector v, int = 0) const { return Add(Multiply(v, All(bscale)), All(bzero)); }
  double operator()(double v) const { return v * bscale + bzero; }
};
template <typename Value>
struct Square {
  Value value;
  Vector operator()(Vector v, int = 0) const {
    const Vector p = value(v);
    return Multiply(p, p);
  }
  double operator()(double v) const {
    const double p = value(v);
    return p * p;
  }
};

// Values, watched for their extremes on the way.
template <typename Value>
struct Watched {
  Value value;
  Vector min[kVectors], max[kVectors];
  PhysicalRow& row;

  Watched(const Value& valueOf, PhysicalRow& result) : value(valueOf), row(result) {
    for (Vector& v : min) v = All(row.min);
    for (Vector& v : max) v = All(row.max);
  }
  Vector operator()(Vector v, int i) {
    const Vector p = value(v);
    min[i] = Lower(p, min[i]);
    max[i] = Higher(p, max[i]);
    return p;
  }
  double operator()(double v) {
    const double p = value(v);
    if (p < row.min) row.min = p;
    if (p > row.max) row.max = p;
    return p;
  }
  void Finish() {
    double values[kInVector];
    for (int i = 0; i < kVectors; ++i) {
      Store(values, min[i]);
      for (const double v : values) row.min = v < row.min ? v : row.min;
      Store(values, max[i]);
      for (const double v : values) row.max = v > row.max ? v : row.max;
    }
    // A zero is +0, whichever of the two came first.
    row.min += 0.0;
    row.max += 0.0;
  }
};

// `first` is what the first sample of the row adds, where `divided` says that it
// differs from `term` of it.
template <typename T, typename Term>
double SumOfLanes(const T* row, std::int64_t width, Term&& term, bool divided = false,
                  double first = 0.0) {
  double lanes[kLanes] = {};
  std::int64_t x = 0;
  if (divided && width > 0) {
    const std::int64_t head = width < kLanes ? width : kLanes;
    lanes[0] += first;
    for (x = 1; x < head; ++x) lanes[x] += term(static_cast<double>(row[x]));
  }
  if (x + kLanes <= width) {
    Vector sums[kVectors];
    for (int i = 0; i < kVectors; ++i) sums[i] = LoadVector(lanes + i * kInVector);
    const auto addEight = [&](const T* from) {
      const Eight samples = Load(from);
      for (int i = 0; i < kVectors; ++i) sums[i] = Add(sums[i], term(samples.v[i], i));
    };
    constexpr std::int64_t kStep = kCacheLine / static_cast<std::int64_t>(sizeof(T));
    for (; x + kStep <= width; x += kStep) {
      FetchAhead(row + x);
      for (std::int64_t i = 0; i < kStep; i += kLanes) addEight(row + x + i);
    }
    for (; x + kLanes <= width; x += kLanes) addEight(row + x);
    for (int i = 0; i < kVectors; ++i) Store(lanes + i * kInVector, sums[i]);
  }
  for (std::int64_t l = x % kLanes; x < width; ++l, ++x) {
    lanes[l] += term(static_cast<double>(row[x]));
  }
  for (int half = kLanes / 2; half > 0; half /= 2) {
    for (int l = 0; l < half; ++l) lanes[l] += lanes[l + half];
  }
  return lanes[0];
}

// Calls f with what makes a sample a physical value. Without scaling that is the
// sample: its product with 1 plus 0 adds the same to a sum and is as far from any other.
template <typename F>
auto WithPhysical(double bscale, double bzero, F f) {
  return bscale == 1.0 && bzero == 0.0 ? f(Stored{}) : f(Physical{bscale, bzero});
}

struct Divided {
  Vector operator()(Vector a, Vector b) const { return Divide(a, b); }
};
struct Multiplied {
  Vector operator()(Vector a, Vector b) const { return Multiply(a, b); }
};

inline std::int32_t BinOf(const BinRule& rule, double stored) {
  const double value = stored * rule.bscale + rule.bzero;
  const double distance = value - rule.min;
  if (!rule.multiplied && rule.width == 0.0) return value == rule.min ? 0 : rule.bins;
  const double q = (rule.multiplied ? distance * rule.width : distance / rule.width) + rule.first;
  // Compared as a double before it is converted; NaN fails.
  return q > -1.0 && q < static_cast<double>(rule.bins) ? static_cast<std::int32_t>(q) : rule.bins;
}

// The bins of eight samples at a time. What is no 32-bit integer is truncated to the
// lowest one, so that everything outside is too large as an unsigned number.
template <typename Value, typename Quotient>
struct BinsOfEight {
  Value value;
  Quotient quotient;
  Vector min, width, first;
  __m128i bins;

  BinsOfEight(const Value& valueOf, const BinRule& rule)
      : value(valueOf),
        min(All(rule.min)),
        width(All(rule.width)),
        first(All(rule.first)),
        bins(_mm_set1_epi32(rule.bins)) {}

  template <typename T>
  void operator()(const T* samples, std::int32_t* cells) const {
    const Eight e = Load(samples);
    for (int i = 0; i < kVectors; ++i) {
      const Vector q = Add(quotient(Subtract(value(e.v[i]), min), width), first);
      StoreIntegers(cells + i * kInVector, _mm_min_epu32(Truncated(q), bins));
    }
  }
};

// Calls f with the loop for a rule, or not at all where only BinOf knows the rule.
template <typename F>
void WithBinsOfEight(const BinRule& rule, F f) {
  WithPhysical(rule.bscale, rule.bzero, [&]<typename Value>(const Value& value) {
    if (rule.multiplied) {
      f(BinsOfEight<Value, Multiplied>(value, rule));
    } else if (rule.width != 0.0) {
      f(BinsOfEight<Value, Divided>(value, rule));
    }
  });
}

template <typename T>
void BinsOf(const T* samples, std::int64_t count, const BinRule& rule, std::int32_t* cells) {
  std::int64_t x = 0;
  WithBinsOfEight(rule, [&](const auto& bins) {
    for (; x + kLanes <= count; x += kLanes) bins(samples + x, cells + x);
  });
  for (; x < count; ++x) cells[x] = BinOf(rule, static_cast<double>(samples[x]));
}

template <typename T>
void CountBins(const T* samples, std::int64_t count, const BinRule& rule,
               const CountTables& tables) {
  // Short strips: the processor divides for the next one while it still counts this one.
  constexpr std::int64_t kStrip = 32;
  constexpr std::int64_t kCopies = CountTables::kCopies;
  constexpr std::int64_t kPerLine = kCacheLine / static_cast<std::int64_t>(sizeof(T));
  std::uint32_t* const copies[kCopies] = {tables.copies[0], tables.copies[1], tables.copies[2],
                                          tables.copies[3]};
  std::int64_t x = 0;
  WithBinsOfEight(rule, [&](const auto& bins) {
    std::int32_t cells[kStrip];
    for (; x + kStrip <= count; x += kStrip) {
      for (std::int64_t i = 0; i < kStrip; i += kPerLine) FetchAhead(samples + x + i);
      for (std::int64_t i = 0; i < kStrip; i += kLanes) bins(samples + x + i, cells + i);
      for (std::int64_t i = 0; i < kStrip; i += kCopies) {
        for (std::int64_t c = 0; c < kCopies; ++c) ++copies[c][cells[i + c]];
      }
    }
  });
  for (; x < count; ++x) ++copies[0][BinOf(rule, static_cast<double>(samples[x]))];
}

template <typename T>
double ScaledSum(const T* row, std::int64_t width, double scale, double divisor) {
  const double first = width > 0 ? static_cast<double>(row[0]) / divisor : 0.0;
  return SumOfLanes(row, width, Scaled{scale}, divisor != 0.0, first);
}
template <typename T>
double ScaledSquareSum(const T* row, std::int64_t width, double scale) {
  return SumOfLanes(row, width, ScaledSquare{scale});
}
template <typename T>
double PhysicalSum(const T* row, std::int64_t width, double bscale, double bzero) {
  return WithPhysical(bscale, bzero,
                      [=](const auto& value) { return SumOfLanes(row, width, value); });
}
template <typename T>
PhysicalRow PhysicalSumAndExtremes(const T* row, std::int64_t width, double bscale, double bzero) {
  return WithPhysical(bscale, bzero, [=]<typename Value>(const Value& value) {
    PhysicalRow result;
    Watched<Value> term(value, result);
    result.sum = SumOfLanes(row, width, term);
    term.Finish();
    return result;
  });
}
template <typename T>
double PhysicalSquareSum(const T* row, std::int64_t width, double bscale, double bzero) {
  return WithPhysical(bscale, bzero, [=]<typename Value>(const Value& value) {
    return SumOfLanes(row, width, Square<Value>{value});
  });
}

}  // namespace

#define KORIN_ELEMENT(name, T)                                                               \
  template <>                                                                                \
  const RowLoops<T>& Loops<T>() {                                                            \
    static constexpr RowLoops<T> loops = {                                                   \
        ScaledSum<T>,         ScaledSquareSum<T>, PhysicalSum<T>, PhysicalSumAndExtremes<T>, \
        PhysicalSquareSum<T>, BinsOf<T>,          CountBins<T>};                             \
    return loops;                                                                            \
  }
KORIN_FOR_EACH_ELEMENT(KORIN_ELEMENT)
#undef KORIN_ELEMENT

}  // namespace korin::kernels::KORIN_ROW_LOOPS
