#include <tuple>

#include "frames.h"
#include "limits.h"

namespace korin::bench {

namespace {

constexpr double kMean = 3000.0;
constexpr double kMiB = 1 << 20;
volatile double g_sink;

void Histogram(CImage& image, int bins) {
  const bool bytes = image.Store()->GetBytesPerLine() == kWidth;
  g_sink = image.HistogramRaw(0, 0.0, bytes ? 256.0 : 65536.0, bins)[1];
}

using Operation = void (*)(CImage&);
constexpr std::pair<const char*, Operation> kOperations[] = {
    {"minmax", [](CImage& i) { g_sink = std::get<0>(i.GetMinMaxRaw(0)); }},
    {"minmaxavr", [](CImage& i) { g_sink = std::get<2>(i.GetMinMaxAvrRaw(0)); }},
    {"average", [](CImage& i) { g_sink = i.GetAverageRaw(0); }},
    {"deviation", [](CImage& i) { g_sink = i.GetStdDevRaw(0, kMean); }},
    {"histogram256", [](CImage& i) { Histogram(i, 256); }},
    {"histogram65536", [](CImage& i) { Histogram(i, 65536); }},
};

template <typename T>
void AddType() {
  const std::string type = NameOf<T>();
  for (const auto& [name, operation] : kOperations) {
    Contest contest{.operation = name, .type = type};
    auto& contenders = contest.contenders;
    const bool histogram = contest.operation.starts_with("histogram");
    for (const auto& [who, policy] : kPaths) {
      contenders.push_back({who, [operation = operation, policy = policy] {
                              operation(Sources<T>().Image(policy));
                            }});
      // What the tables of the threads add to memory while bins are counted.
      const auto scratch = [operation = operation, policy = policy]() -> Figures {
        CImage& image = Sources<T>().Image(policy);
        const std::int64_t before = ResidentBytes();
        const std::int64_t peak = PeakDuring([&] { operation(image); });
        return {{"scratch_MiB", static_cast<double>(peak - before) / kMiB}};
      };
      if (histogram) AddMemory(name, type, who, scratch);
    }
    if (sizeof(T) == 1 && contest.operation == "histogram65536") continue;
    contenders.push_back(
        {"limit", [] { ReadAll(Sources<T>().Pixels(), Frames<T>::kBytes, GetThreadCount()); }});
    Append(contenders, OpenCvPeers(name, PlaneOf<T>()));
    Append(contenders, VipsPeers(name, PlaneOf<T>()));
    if (!histogram) contenders.push_back(Driver("numpy", "numpy " + (name + (" " + type))));
    Add(contest);
  }

  Contest fill{.operation = "fill", .type = type};
  for (const auto& [who, policy] : kPaths) {
    fill.contenders.push_back(
        {who, [policy = policy] { Results<T>().Image(policy).Fill(0, 100.0); }});
  }
  fill.contenders.push_back(
      {"memset", [] { SetAll(Results<T>().Pixels(), Frames<T>::kBytes, GetThreadCount()); }});
  Append(fill.contenders, OpenCvPeers("fill", PlaneOf<T>()));
  Add(fill);
}

}  // namespace

void AddStatistics() {
  AddType<std::uint8_t>();
  AddType<std::uint16_t>();
  AddType<std::int32_t>();
  AddType<float>();
  AddType<double>();
}

}  // namespace korin::bench
