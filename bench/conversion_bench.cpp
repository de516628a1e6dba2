#include "benches.h"
#include "frames.h"
#include "kernels/kernel_calls.h"
#include "kernels/store_conversion.h"
#include "limits.h"

namespace korin::bench {

namespace {

template <typename T>
ElementKind KindOf() {
  return *ElementKindOf(static_cast<int>(TypeOf<T>()), std::is_signed_v<T>);
}

const ConversionRanges kRange{{1000.0, 5095.0}};

template <typename S, typename D>
class Conversions {
 public:
  explicit Conversions(Frames<S>& frames) : m_frames(frames) {}

  // The same conversion by blocks of whole planes and by rows of blocks, into an
  // image that is there already.
  void Bench(const std::string& operation, const RowConversion& conversion, bool normalize) {
    if (!Wanted(operation)) return;
    CImage planes = Target(Policy::Planes);
    CImage blocks = Target(Policy::Blocks);
    Contest contest{
        .operation = operation, .type = NameOf<S>() + "->" + NameOf<D>(), .contenders = {}};
    contest.contenders = {
        {"kernel",
         [&] {
           (void)ConvertBlocks(*planes.Store(), *m_frames.Image(Policy::Planes).Store(), nullptr,
                               false, conversion);
         }},
        {"row",
         [&] {
           (void)ConvertRows(*blocks.Store(), *m_frames.Image(Policy::Blocks).Store(), nullptr,
                             conversion);
         }},
        {"limit", [&] {
           ReadAndWrite(m_frames.Pixels(), kRead, m_out.data(), kWritten, GetThreadCount());
         }}};
    if (normalize) {
      for (auto& peer : OpenCvPeers("normalize", m_frames.PlainPlane(), NameOf<D>())) {
        contest.contenders.push_back(peer);
      }
    }
    Run(contest);
  }

  // Range and mapping, as one would ask for them.
  void BenchWithRange() {
    if (!Wanted("minmax+normalize")) return;
    Contest contest{.operation = "minmax+normalize",
                    .type = NameOf<S>() + "->" + NameOf<D>(),
                    .contenders = {}};
    CImage planes = Target(Policy::Planes);
    CImage blocks = Target(Policy::Blocks);
    for (const auto& [who, policy, target] :
         {std::tuple("kernel", Policy::Planes, &planes), {"row", Policy::Blocks, &blocks}}) {
      contest.contenders.push_back(
          {who, [this, policy = policy, target = target] {
             CImage& source = m_frames.Image(policy);
             const auto range = source.GetMinMaxRaw(0);
             const auto conversion = NormalizeMappingConversion(
                 KindOf<S>(), KindOf<D>(), 1.0, 0.0, {{std::get<0>(range), std::get<1>(range)}});
             if (policy == Policy::Planes) {
               (void)ConvertBlocks(*target->Store(), *source.Store(), nullptr, false, conversion);
             } else {
               (void)ConvertRows(*target->Store(), *source.Store(), nullptr, conversion);
             }
           }});
    }
    for (auto& peer : OpenCvPeers("minmax+normalize", m_frames.PlainPlane(), NameOf<D>())) {
      contest.contenders.push_back(peer);
    }
    Run(contest);
  }

 private:
  static constexpr std::int64_t kRead = kPixels * static_cast<std::int64_t>(sizeof(S));
  static constexpr std::int64_t kWritten = kPixels * static_cast<std::int64_t>(sizeof(D));

  CImage Target(Policy policy) {
    m_frames.Manager()->SetAllocationPolicy(policy);
    CImage image(m_frames.Manager(), TypeOf<D>(), kWidth, kHeight, 1, 1.0, 0.0, std::is_signed_v<D>,
                 CImage::ProgressPtr());
    image.Fill(0, 1.0);
    return image;
  }

  Frames<S>& m_frames;
  std::vector<D> m_out = std::vector<D>(static_cast<std::size_t>(kPixels));
};

template <typename S, typename D>
void BenchToInteger(Frames<S>& frames, bool withRange, bool withShift) {
  Conversions<S, D> conversions(frames);
  conversions.Bench("normalize",
                    NormalizeMappingConversion(KindOf<S>(), KindOf<D>(), 1.0, 0.0, kRange), true);
  if (withRange) conversions.BenchWithRange();
  if (withShift) {
    conversions.Bench("shift_clamp",
                      ShiftClampConversion(KindOf<S>(), KindOf<D>(), 1.0, 0.0, -1000.0), false);
  }
}

template <typename S, typename D>
void BenchCast(Frames<S>& frames) {
  Conversions<S, D>(frames).Bench("static_cast", StaticCastConversion(KindOf<S>(), KindOf<D>()),
                                  false);
}

void BenchCopy(Frames<std::uint16_t>& frames) {
  constexpr std::int64_t kBytes = kPixels * 2;
  std::vector<std::uint16_t> out(static_cast<std::size_t>(kPixels));
  Run({.operation = "copy",
       .type = "uint16",
       .contenders = {
           {"kernel",
            [&] {
              (void)kernels::CopyBytes(frames.Pixels(), out.data(), kWidth * 2, kHeight, kWidth * 2,
                                       kWidth * 2);
            }},
           {"memcpy", [&] { CopyAll(frames.Pixels(), out.data(), kBytes, GetThreadCount()); }}}});
  // A new image each time: what the system asks for fresh memory is in it.
  Run({.operation = "copy_image",
       .type = "uint16",
       .contenders = {
           {"kernel", [&] { CImage copy(frames.Image(Policy::Planes)); }},
           {"row", [&] { CImage copy(frames.Image(Policy::Blocks)); }},
           {"memcpy", [&] { CopyAll(frames.Pixels(), out.data(), kBytes, GetThreadCount()); }}}});
}

template <typename T>
void BenchSmall(std::int64_t side) {
  const auto pixels = SkyPixels<T>(side * side);
  std::vector<std::uint8_t> out(pixels.size());
  const std::string type = NameOf<T>() + "_" + std::to_string(side) + "x" + std::to_string(side);
  Run({.operation = "small_minmax",
       .type = type,
       .contenders = {{.who = "kernel",
                       .run =
                           [&] {
                             T low{};
                             T high{};
                             (void)kernels::MinMax(pixels.data(), side, side, side, low, high);
                           },
                       .repeats = 500}},
       .sweep = false});
  Run({.operation = "small_normalize",
       .type = type,
       .contenders = {{.who = "kernel",
                       .run =
                           [&] {
                             (void)kernels::NormalizeMapping(pixels.data(), out.data(), side, side,
                                                             side, side, 1.0, 0.0, 1000.0, 5000.0);
                           },
                       .repeats = 100}},
       .sweep = false});
}

}  // namespace

void BenchConversions() {
  bool wanted = false;
  for (const char* name :
       {"normalize", "minmax+normalize", "shift_clamp", "static_cast", "copy", "copy_image"}) {
    wanted = wanted || Wanted(name);
  }
  if (!wanted) return;
  {
    Frames<std::uint16_t> frames;
    BenchToInteger<std::uint16_t, std::uint8_t>(frames, true, true);
    BenchToInteger<std::uint16_t, std::int16_t>(frames, false, true);
    BenchCast<std::uint16_t, float>(frames);
    BenchCopy(frames);
  }
  {
    Frames<float> frames;
    BenchToInteger<float, std::uint8_t>(frames, true, true);
    BenchToInteger<float, std::uint16_t>(frames, false, true);
    BenchCast<float, double>(frames);
  }
  {
    Frames<std::int32_t> frames;
    BenchCast<std::int32_t, double>(frames);
  }
  {
    Frames<double> frames;
    BenchToInteger<double, std::int32_t>(frames, false, false);
    BenchToInteger<double, std::uint32_t>(frames, false, false);
    BenchCast<double, float>(frames);
  }
}

void BenchSmallBlocks() {
  for (const std::int64_t side : {64, 128, 256, 512}) {
    BenchSmall<std::uint16_t>(side);
    BenchSmall<float>(side);
  }
}

}  // namespace korin::bench
