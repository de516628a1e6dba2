#include "kernels/pipelines.h"
#include "kernels/store_conversion.h"
#include "korinimage/threads.h"
#include "samples.h"
#include "variant.h"

namespace korin::kernels::test {
namespace {

struct Scaling {
  double bscale, bzero, a, b;  // a, b: minimum and maximum; a alone: the shift
};

// The plain loops that every form must equal bit for bit.
template <typename S, typename D>
D Normalized(S v, const Scaling& s) {
  constexpr DestinationRange to = RangeOf<D>();
  const double p = static_cast<double>(v) * s.bscale + (s.bzero - s.a);
  double t = p / (s.b - s.a);
  t = t < 1.0 ? t : 1.0;
  t = t > 0.0 ? t : 0.0;
  return static_cast<D>(t * to.range + to.offset);
}

template <typename S, typename D>
D ShiftedIn(S v, std::int32_t width, const Scaling& s) {
  constexpr DestinationRange to = RangeOf<D>();
  double p = static_cast<double>(v) * s.bscale;
  if (width >= 64) {
    p = p + (s.bzero + s.a);
  } else {
    p = p + s.bzero;
    p = p + s.a;
  }
  p = p < to.high ? p : to.high;
  p = p > to.low ? p : to.low;
  return static_cast<D>(p);
}

template <typename S, typename D, typename Kernel, typename Sample>
void Check(const Plane<S>& source, Kernel kernel, Sample sample) {
  Plane<D> got(source.width, source.lines, 3);
  Plane<D> wanted(source.width, source.lines, 3);
  for (std::int32_t y = 0; y < source.lines; ++y) {
    for (std::int32_t x = 0; x < source.width; ++x) wanted.At(x, y) = sample(source.At(x, y));
  }
  PixelBuffer input = source.Describe();
  PixelBuffer output = got.Describe();
  ASSERT_EQ(kernel(input, output), 0);
  ASSERT_TRUE(SameBits(got, wanted));
}

template <typename S>
std::vector<Plane<S>> Planes() {
  std::vector<Plane<S>> planes;
  std::uint32_t seed = 1;
  for (const auto& [width, lines] : SmallShapes()) {
    planes.emplace_back(width, lines, width % 5, Content::kHostile, ++seed);
  }
  for (const auto& [width, lines] : LargeShapes()) {
    planes.emplace_back(width, lines, 0, Content::kHostile, ++seed);
  }
  return planes;
}

TEST(Conversions, NormalizeMappingAndShiftClamp) {
  constexpr Scaling normalizing[] = {{1.0, 0.0, 0.0, 65535.0},
                                     {0.7, -5.0, 3.25, 250.0},
                                     {-1.5, 32768.0, -1000.25, 70000.0},
                                     {1.0, 0.0, 5.0, 5.0},
                                     {1.0, 0.0, 9.0, -9.0}};
  // The last: bzero and shift cancel when they are added first.
  constexpr Scaling shifting[] = {{1.0, 0.0, 0.0, 0.0},
                                  {0.7, -5.0, 3.25, 0.0},
                                  {-1.5, 32768.0, -40000.75, 0.0},
                                  {1.0e-3, 1.0e17, -1.0e17, 0.0}};
  ForEachElement([&]<typename S>(std::type_identity<S>) {
    const auto planes = Planes<S>();
    ForEachInteger([&]<typename D>(std::type_identity<D>) {
      SCOPED_TRACE(testing::Message() << sizeof(S) << " to " << sizeof(D) << " bytes");
      const auto& pipelines = IntegerConversion<S, D>();
      std::size_t turn = 0;
      for (const Plane<S>& plane : planes) {
        const Scaling& n = normalizing[turn % std::size(normalizing)];
        Check<S, D>(
            plane,
            [&](halide_buffer_t* in, halide_buffer_t* out) {
              return pipelines.normalize_mapping(in, n.bscale, n.bzero, n.a, n.b, out);
            },
            [&](S v) { return Normalized<S, D>(v, n); });
        const Scaling& s = shifting[turn++ % std::size(shifting)];
        Check<S, D>(
            plane,
            [&](halide_buffer_t* in, halide_buffer_t* out) {
              return pipelines.shift_clamp(in, s.bscale, s.bzero, s.a, out);
            },
            [&](S v) { return ShiftedIn<S, D>(v, plane.width, s); });
        if (testing::Test::HasFatalFailure()) return;
      }
    });
  });
}

TEST(Conversions, StaticCast) {
#define KORIN_X(from, S, to, D)                                                         \
  for (const Plane<S>& plane : Planes<S>()) {                                           \
    SCOPED_TRACE(#from " to " #to);                                                     \
    Check<S, D>(plane, StaticCastEntry<S, D>(), [](S v) { return static_cast<D>(v); }); \
  }
  KORIN_FOR_EACH_CAST(KORIN_X)
#undef KORIN_X
}

// A conversion told of a large plane looks its small samples up, or computes them where
// that is faster on two threads: the same bits as on one thread without being told, also
// after another plane of another range or width.
TEST(Conversions, PreparedEqualsUnprepared) {
  ForEachElement([]<typename S>(std::type_identity<S>) {
    if constexpr (sizeof(S) <= 2) {
      const auto kindOf = []<typename T>(std::type_identity<T>) {
        return *ElementKindOf(8 * static_cast<int>(sizeof(T)), std::is_signed_v<T>);
      };
      ForEachInteger([&]<typename D>(std::type_identity<D> to) {
        const ElementKind from = kindOf(std::type_identity<S>{});
        const auto make = [&](bool normalize) {
          return normalize ? NormalizeMappingConversion(from, kindOf(to), 0.7, -5.0,
                                                        {{3.25, 250.0}, {-100.0, 40000.0}})
                           : ShiftClampConversion(from, kindOf(to), 1.0e-3, 1.0e17, -1.0e17);
        };
        for (const bool normalize : {true, false}) {
          const RowConversion prepared = make(normalize);
          const RowConversion plain = make(normalize);
          std::int64_t number = 0;
          for (const auto& [width, lines] :
               {std::pair(1027, 519), {1027, 519}, {1027, 259}, {61, 8600}, {61, 2}}) {
            const Plane<S> source(width, lines, 3, Content::kFullRange, 6);
            Plane<D> got(width, lines, 2);
            Plane<D> wanted(width, lines, 2);
            SetThreadCount(2);
            prepared.PrepareFor({number, width, lines});
            for (const auto& [conversion, plane] :
                 {std::pair(&prepared, &got), {&plain, &wanted}}) {
              if (conversion == &plain) SetThreadCount(1);
              ASSERT_TRUE((*conversion)({reinterpret_cast<const BYTE*>(source.Data()),
                                         reinterpret_cast<BYTE*>(plane->Data()), width, lines,
                                         source.stride, plane->stride, number}));
            }
            ASSERT_TRUE(SameBits(got, wanted)) << sizeof(S) << " to " << sizeof(D) << " bytes";
            ++number;
          }
        }
      });
    }
  });
  SetThreadCount(0);
}

// Values worked out by hand.
template <typename S, typename D>
D One(S v, bool normalize, const Scaling& s) {
  Plane<S> source(1, 1);
  source.At(0, 0) = v;
  Plane<D> result(1, 1);
  PixelBuffer in = source.Describe();
  PixelBuffer out = result.Describe();
  const auto& pipelines = IntegerConversion<S, D>();
  EXPECT_EQ(normalize ? pipelines.normalize_mapping(in, s.bscale, s.bzero, s.a, s.b, out)
                      : pipelines.shift_clamp(in, s.bscale, s.bzero, s.a, out),
            0);
  return result.At(0, 0);
}

TEST(Conversions, KnownValues) {
  const auto normalize = [](auto to, auto v, double minimum, double maximum) {
    return One<decltype(v), decltype(to)>(v, true, {1.0, 0.0, minimum, maximum});
  };
  const auto shift = [](auto to, auto v, double amount) {
    return One<decltype(v), decltype(to)>(v, false, {1.0, 0.0, amount, 0.0});
  };
  using U8 = std::uint8_t;
  using I16 = std::int16_t;
  using I32 = std::int32_t;
  using U16 = std::uint16_t;
  using U32 = std::uint32_t;
  EXPECT_EQ(normalize(U8{}, U16{65535}, 0, 65535), 255);
  EXPECT_EQ(normalize(U8{}, U16{65534}, 0, 65535), 254);
  EXPECT_EQ(normalize(U8{}, U16{0}, 0, 65535), 0);
  EXPECT_EQ(normalize(I16{}, I16{-32768}, -32768, 32767), -32768);
  EXPECT_EQ(normalize(I16{}, I16{32767}, -32768, 32767), 32767);
  EXPECT_EQ(normalize(I32{}, U16{0}, 0, 65535), INT32_MIN);
  EXPECT_EQ(normalize(I32{}, 2.0, 0, 1), INT32_MAX);
  EXPECT_EQ(normalize(U8{}, -0.5F, 0, 1), 0);
  EXPECT_EQ(normalize(U8{}, 1.5F, 0, 1), 255);
  EXPECT_EQ(normalize(U32{}, std::nan(""), 0, 1), 4294967295U) << "NaN gets the highest code";
  EXPECT_EQ(normalize(I16{}, 4.0, 4, 4), 32767) << "0 / 0 gets the highest code";
  EXPECT_EQ(shift(U8{}, -5, 0), 0);
  EXPECT_EQ(shift(U8{}, 300, 0), 255);
  EXPECT_EQ(shift(U8{}, 17, 0), 17);
  EXPECT_EQ(shift(I16{}, 1.9, 0), 1);
  EXPECT_EQ(shift(I16{}, -1.9, 0), -1);
  EXPECT_EQ(shift(U32{}, 4294967294.9, 0), 4294967294U);
  EXPECT_EQ(shift(U8{}, std::nanf(""), 0), 255);
  // 10 * 0.7 - 5 rounds to 2 in two operations, and below it in one.
  EXPECT_EQ((One<U8, U8>(10, false, {0.7, -5.0, 0.0, 0.0})), 2);
}

}  // namespace
}  // namespace korin::kernels::test
