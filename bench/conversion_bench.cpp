#include <tuple>

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

// A conversion by blocks of whole planes and by rows of blocks, into an image that is
// there already. `make(source)` makes what converts; that is part of the work.
template <typename S, typename D, typename Make>
void AddConversion(const std::string& operation, Make make) {
  Contest contest{.operation = operation, .type = NameOf<S>() + "->" + NameOf<D>()};
  for (const auto& [who, policy] : kPaths) {
    contest.contenders.push_back({who, [make, policy = policy] {
                                    CImage& source = Sources<S>().Image(policy);
                                    CVmImage& to = *Results<D>().Image(policy).Store();
                                    const RowConversion conversion = make(source);
                                    if (policy == Policy::Planes) {
                                      (void)ConvertBlocks(to, *source.Store(), nullptr, false,
                                                          conversion);
                                    } else {
                                      (void)ConvertRows(to, *source.Store(), nullptr, conversion);
                                    }
                                  }});
  }
  if (operation != "minmax+normalize") {
    contest.contenders.push_back({"limit", [] {
                                    ReadAndWrite(Sources<S>().Pixels(), Frames<S>::kBytes,
                                                 Results<D>().Pixels(), Frames<D>::kBytes,
                                                 GetThreadCount());
                                  }});
  }
  Append(contest.contenders, OpenCvPeers(operation, PlaneOf<S>(), NameOf<D>()));
  Add(contest);
}

template <typename S, typename D>
void AddNormalize() {
  AddConversion<S, D>("normalize", [](CImage&) {
    return NormalizeMappingConversion(KindOf<S>(), KindOf<D>(), 1.0, 0.0, {{1000.0, 5095.0}});
  });
}

// Range and mapping, as one would ask for them.
template <typename S, typename D>
void AddNormalizeWithRange() {
  AddConversion<S, D>("minmax+normalize", [](CImage& source) {
    const auto range = source.GetMinMaxRaw(0);
    return NormalizeMappingConversion(KindOf<S>(), KindOf<D>(), 1.0, 0.0,
                                      {{std::get<0>(range), std::get<1>(range)}});
  });
}

template <typename S, typename D>
void AddShift() {
  AddConversion<S, D>("shift_clamp", [](CImage&) {
    return ShiftClampConversion(KindOf<S>(), KindOf<D>(), 1.0, 0.0, -1000.0);
  });
}

template <typename S, typename D>
void AddCast() {
  AddConversion<S, D>("static_cast",
                      [](CImage&) { return StaticCastConversion(KindOf<S>(), KindOf<D>()); });
}

void AddCopies() {
  using T = std::uint16_t;
  const Contender copyAll{"memcpy", [] {
                            CopyAll(Sources<T>().Pixels(), Results<T>().Pixels(), Frames<T>::kBytes,
                                    GetThreadCount());
                          }};
  Contest copy{.operation = "copy", .type = NameOf<T>()};
  copy.contenders = {{"kernel",
                      [] {
                        (void)kernels::CopyBytes(Sources<T>().Pixels(), Results<T>().Pixels(),
                                                 kWidth * 2, kHeight, kWidth * 2, kWidth * 2);
                      }},
                     copyAll};
  Append(copy.contenders, OpenCvPeers("copy", PlaneOf<T>()));
  Add(copy);
  // A new image each time, in memory that was an image's before: what the system asks for
  // fresh memory would otherwise be in those timings that follow one of the other path.
  Contest image{.operation = "copy_image", .type = NameOf<T>(), .contenders = {copyAll}};
  for (const auto& [who, policy] : kPaths) {
    const auto make = [policy = policy] { CImage made(Sources<T>().Image(policy)); };
    image.contenders.push_back({.who = who, .run = make, .prepare = make});
  }
  Add(image);
}

template <typename T>
void AddSmall(std::int64_t side) {
  const auto pixels = std::make_shared<std::vector<T>>(SkyPixels<T>(side * side));
  const auto out = std::make_shared<std::vector<std::uint8_t>>(pixels->size());
  const std::string type = NameOf<T>() + "_" + std::to_string(side) + "x" + std::to_string(side);
  // Long enough that what slows the machine for a moment does not decide a timing.
  const auto repeats = static_cast<int>((std::int64_t{1} << 27) / (side * side));
  const auto add = [&](const char* operation, std::function<void()> run) {
    Contender kernel{"kernel", std::move(run)};
    kernel.repeats = repeats;
    Add({.operation = operation, .type = type, .contenders = {kernel}, .sweep = false});
  };
  add("small_minmax", [=] {
    T low{};
    T high{};
    (void)kernels::MinMax(pixels->data(), side, side, side, low, high);
  });
  add("small_normalize", [=] {
    (void)kernels::NormalizeMapping(pixels->data(), out->data(), side, side, side, side, 1.0, 0.0,
                                    1000.0, 5000.0);
  });
}

}  // namespace

void AddConversions() {
  AddNormalize<std::uint16_t, std::uint8_t>();
  AddNormalize<std::uint16_t, std::int16_t>();
  AddNormalize<float, std::uint8_t>();
  AddNormalize<float, std::uint16_t>();
  AddNormalize<double, std::int32_t>();
  AddNormalize<double, std::uint32_t>();
  AddNormalizeWithRange<std::uint16_t, std::uint8_t>();
  AddNormalizeWithRange<float, std::uint8_t>();
  AddShift<std::uint16_t, std::uint8_t>();
  AddShift<std::uint16_t, std::int16_t>();
  AddShift<float, std::uint8_t>();
  AddShift<float, std::uint16_t>();
  AddCast<std::uint16_t, float>();
  AddCast<std::int32_t, double>();
  AddCast<float, double>();
  AddCast<double, float>();
  AddCopies();
}

void AddSmallBlocks() {
  for (const std::int64_t side : {64, 128, 256, 512}) {
    AddSmall<std::uint16_t>(side);
    AddSmall<float>(side);
  }
}

}  // namespace korin::bench
