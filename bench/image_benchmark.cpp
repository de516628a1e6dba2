// Whole-image operations on a 24-megapixel plane, beside what the memory allows
// (a copy, a read) and, where it was found, OpenCV doing the same work. Names are
// operation/type/who, so that ratios can be formed within one run.
#include <benchmark/benchmark.h>

#include <cstring>
#include <map>
#include <numeric>
#include <random>
#include <vector>

#include "korinimage/korinimage.h"
#ifdef KORIN_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

using Policy = CVmManager::AllocationPolicy;
constexpr int kWidth = 6000;
constexpr int kHeight = 4000;
constexpr std::size_t kPixels = std::size_t{kWidth} * kHeight;

std::shared_ptr<CVmManager> Manager() {
  static const auto manager = [] {
    auto configuration = CVmManagerConfiguration::DefaultConfiguration();
    configuration->MemoryRatio = 0;
    configuration->MinMemorySize = 3000;
    return CVmManager::Create(std::move(configuration));
  }();
  return manager;
}

template <typename T>
constexpr CImage::DataType TypeOf() {
  constexpr int kBits = 8 * static_cast<int>(sizeof(T));
  return static_cast<CImage::DataType>(std::is_floating_point_v<T> ? -kBits : kBits);
}

// A sky-like frame: noise around a background.
template <typename T>
const std::vector<T>& Pixels() {
  static const auto pixels = [] {
    std::vector<T> values(kPixels);
    std::mt19937 random(1);
    for (T& value : values)
      value = static_cast<T>(sizeof(T) == 1 ? random() % 64 : 1000 + random() % 4096);
    return values;
  }();
  return pixels;
}

template <typename T>
CImage& Frame(Policy policy) {
  static std::map<Policy, CImage> frames;
  Manager()->SetAllocationPolicy(policy);
  if (!frames.contains(policy)) {
    CImage image(Manager(), TypeOf<T>(), kWidth, kHeight, 1, 1.0, 0.0, std::is_signed_v<T>,
                 CImage::ProgressPtr());
    const T* from = Pixels<T>().data();
    for (std::int64_t y = 0; y < kHeight;) {
      const auto run = image.Store()->GetLineRun(0, y);
      const auto block = image.Store()->PinBlock(run.block, korin::BlockIntent::Write);
      std::memcpy(block.Address(), from + y * kWidth,
                  static_cast<std::size_t>(run.lines * image.Store()->GetBytesPerLine()));
      y += run.lines;
    }
    frames.emplace(policy, std::move(image));
  }
  return frames.at(policy);
}

template <typename T, typename Operation>
void Measure(benchmark::State& state, Policy policy, Operation&& operation) {
  CImage& image = Frame<T>(policy);
  for (auto _ : state) operation(image);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kPixels * sizeof(T)));
}

template <typename T>
void Register(const std::string& type) {
  using Operation = void (*)(CImage&);
  const std::pair<const char*, Operation> operations[] = {
      {"minmax", [](CImage& i) { benchmark::DoNotOptimize(i.GetMinMaxRaw(0)); }},
      {"minmaxavr", [](CImage& i) { benchmark::DoNotOptimize(i.GetMinMaxAvrRaw(0)); }},
      {"average", [](CImage& i) { benchmark::DoNotOptimize(i.GetAverageRaw(0)); }},
      {"deviation", [](CImage& i) { benchmark::DoNotOptimize(i.GetStdDevRaw(0, 3000.0)); }},
      {"histogram256",
       [](CImage& i) { benchmark::DoNotOptimize(i.HistogramRaw(0, 0.0, 65536.0, 256)); }},
      {"histogram65536",
       [](CImage& i) { benchmark::DoNotOptimize(i.HistogramRaw(0, 0.0, 65536.0, 65536)); }},
      {"fill", [](CImage& i) { i.Fill(0, 1234.0); }},
  };
  for (const auto& [name, operation] : operations) {
    for (const auto& [path, policy] :
         {std::pair("kernel", Policy::Planes), {"row", Policy::Blocks}}) {
      benchmark::RegisterBenchmark(
          (std::string(name) + "/" + type + "/" + path).c_str(),
          [operation = operation, policy = policy](benchmark::State& state) {
            Measure<T>(state, policy, operation);
          })
          ->UseRealTime()
          ->Unit(benchmark::kMillisecond);
    }
  }
  benchmark::RegisterBenchmark(
      ("copy/" + type + "/memcpy").c_str(),
      [](benchmark::State& state) {
        static std::vector<T> target(kPixels);
        for (auto _ : state) {
          std::memcpy(target.data(), Pixels<T>().data(), kPixels * sizeof(T));
          benchmark::ClobberMemory();
        }
        state.SetBytesProcessed(state.iterations() *
                                static_cast<std::int64_t>(kPixels * sizeof(T)));
      })
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark(("fill/" + type + "/memset").c_str(),
                               [](benchmark::State& state) {
                                 static std::vector<T> target(kPixels);
                                 for (auto _ : state) {
                                   std::memset(target.data(), 7, kPixels * sizeof(T));
                                   benchmark::ClobberMemory();
                                 }
                               })
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
}

template <typename S>
void RegisterConversion(const std::string& type, CImage::DataType to, CImage::ChangeBitsLevel level,
                        const std::string& name) {
  for (const auto& [path, policy] :
       {std::pair("kernel", Policy::Planes), {"row", Policy::Blocks}}) {
    benchmark::RegisterBenchmark((name + "/" + type + "/" + path).c_str(),
                                 [policy = policy, to, level](benchmark::State& state) {
                                   CImage& image = Frame<S>(policy);
                                   for (auto _ : state) {
                                     CImage result;
                                     benchmark::DoNotOptimize(result.ChangeBits(
                                         &image, to, false, level, CImage::ProgressPtr()));
                                   }
                                 })
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
  }
}

#ifdef KORIN_BENCH_OPENCV
template <typename T>
void RegisterPeer(const std::string& type) {
  static const cv::Mat mat(kHeight, kWidth, cv::traits::Type<T>::value,
                           const_cast<T*>(Pixels<T>().data()));
  const auto add = [&type](const char* name, auto operation) {
    benchmark::RegisterBenchmark((std::string(name) + "/" + type + "/opencv").c_str(),
                                 [operation](benchmark::State& state) {
                                   for (auto _ : state) operation();
                                 })
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
  };
  add("minmax", [] {
    double low, high;
    cv::minMaxLoc(mat, &low, &high);
    benchmark::DoNotOptimize(low + high);
  });
  add("average", [] { benchmark::DoNotOptimize(cv::mean(mat)); });
  add("deviation", [] {
    cv::Scalar mean, deviation;
    cv::meanStdDev(mat, mean, deviation);
    benchmark::DoNotOptimize(deviation);
  });
  if constexpr (sizeof(T) <= 2 || std::is_same_v<T, float>) {
    for (const int bins : {256, 65536}) {
      add(bins == 256 ? "histogram256" : "histogram65536", [bins] {
        const int channel = 0;
        const float range[] = {0.0f, 65536.0f};
        const float* ranges = range;
        cv::Mat histogram;
        cv::calcHist(&mat, 1, &channel, cv::Mat(), histogram, 1, &bins, &ranges);
        benchmark::DoNotOptimize(histogram.data);
      });
    }
  }
  add("minmax_to_8", [] {
    static cv::Mat out;
    cv::normalize(mat, out, 0, 255, cv::NORM_MINMAX, CV_8U);
    benchmark::DoNotOptimize(out.data);
  });
}
#endif

const bool kRegistered = [] {
  Register<std::uint16_t>("uint16");
  Register<float>("float");
  Register<double>("double");
  for (const auto& [name, level] : {std::pair("minmax_to_8", CImage::ChangeBitsLevel::MinMax),
                                    {"raw_to_8", CImage::ChangeBitsLevel::Raw}}) {
    RegisterConversion<std::uint16_t>("uint16", CImage::DataTypeInt8, level, name);
    RegisterConversion<float>("float", CImage::DataTypeInt8, level, name);
  }
  RegisterConversion<std::uint16_t>("uint16", CImage::DataTypeFloat, CImage::ChangeBitsLevel::Raw,
                                    "cast_to_float");
  for (const auto& [path, policy] :
       {std::pair("kernel", Policy::Planes), {"row", Policy::Blocks}}) {
    benchmark::RegisterBenchmark((std::string("copy/uint16/") + path).c_str(),
                                 [policy = policy](benchmark::State& state) {
                                   const CImage& image = Frame<std::uint16_t>(policy);
                                   for (auto _ : state) benchmark::DoNotOptimize(CImage(image));
                                 })
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
  }
#ifdef KORIN_BENCH_OPENCV
  RegisterPeer<std::uint16_t>("uint16");
  RegisterPeer<float>("float");
  RegisterPeer<double>("double");
#endif
  return true;
}();

}  // namespace
