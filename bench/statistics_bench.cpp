#include <utility>

#include "benches.h"
#include "frames.h"
#include "limits.h"

namespace korin::bench {

namespace {

constexpr double kMean = 3000.0;
volatile double g_sink;

void Histogram(CImage& image, double end, int bins) {
  g_sink = image.HistogramRaw(0, 0.0, end, bins)[1];
}

template <typename T>
void BenchType() {
  const double end = sizeof(T) == 1 ? 256.0 : 65536.0;
  using Operation = std::function<void(CImage&)>;
  std::vector<std::pair<std::string, Operation>> operations = {
      {"minmax", [](CImage& i) { g_sink = std::get<0>(i.GetMinMaxRaw(0)); }},
      {"minmaxavr", [](CImage& i) { g_sink = std::get<2>(i.GetMinMaxAvrRaw(0)); }},
      {"average", [](CImage& i) { g_sink = i.GetAverageRaw(0); }},
      {"deviation", [](CImage& i) { g_sink = i.GetStdDevRaw(0, kMean); }},
      {"histogram256", [end](CImage& i) { Histogram(i, end, 256); }},
      {"histogram65536", [end](CImage& i) { Histogram(i, end, 65536); }},
      {"fill", [](CImage& i) { i.Fill(0, 100.0); }},
  };
  bool wanted = false;
  for (const auto& [name, operation] : operations) wanted = wanted || Wanted(name);
  if (!wanted) return;

  Frames<T> frames;
  const std::int64_t bytes = kPixels * static_cast<std::int64_t>(sizeof(T));
  const std::string type = NameOf<T>();
  for (const auto& [name, operation] : operations) {
    if (sizeof(T) == 1 && name == "histogram65536") continue;
    Contest contest{.operation = name, .type = type, .contenders = {}};
    auto& contenders = contest.contenders;
    for (const auto& [who, policy] :
         {std::pair("kernel", Policy::Planes), {"row", Policy::Blocks}}) {
      contenders.push_back({who, [&frames, operation = operation, policy = policy] {
                              operation(frames.Image(policy));
                            }});
    }
    if (name == "fill") {
      contenders.push_back({"memset", [&] { SetAll(frames.Pixels(), bytes, GetThreadCount()); }});
    } else {
      contenders.push_back({"limit", [&] { ReadAll(frames.Pixels(), bytes, GetThreadCount()); }});
      for (auto& peer : OpenCvPeers(name, frames.PlainPlane())) contenders.push_back(peer);
      for (auto& peer : VipsPeers(name, frames.PlainPlane())) contenders.push_back(peer);
      if (auto peer = Driver("numpy", "numpy " + name + " " + type); peer.run) {
        contenders.push_back(peer);
      }
    }
    Run(contest);
  }

  // What the tables of the threads add to memory while bins are counted.
  if (!Wanted("histogram65536")) return;
  for (const auto& [who, policy] : {std::pair("kernel", Policy::Planes), {"row", Policy::Blocks}}) {
    ResetPeak();
    const std::int64_t before = ResidentBytes();
    Histogram(frames.Image(policy), end, 65536);
    Fact("histogram65536", type, std::string("scratch_MiB_") + who,
         static_cast<double>(PeakBytes() - before) / (1 << 20));
  }
}

}  // namespace

void BenchStatistics() {
  BenchType<std::uint8_t>();
  BenchType<std::uint16_t>();
  BenchType<std::int32_t>();
  BenchType<float>();
  BenchType<double>();
}

}  // namespace korin::bench
