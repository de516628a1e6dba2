#include "peers.h"

#ifdef KORIN_BENCH_VIPS
#include <vips/vips.h>

#include <map>
#include <memory>

namespace korin::bench {

namespace {

volatile double g_sink;

void Start() {
  static const bool started = [] {
    VIPS_INIT("korin_bench");
    vips_cache_set_max(0);  // an answer must not be remembered
    return true;
  }();
  (void)started;
}

using Image = std::shared_ptr<VipsImage>;

Image Own(VipsImage* image) {
  return Image(image, [](VipsImage* old) {
    if (old != nullptr) g_object_unref(old);
  });
}

void MinMax(VipsImage* image) {
  double low = 0.0;
  double high = 0.0;
  vips_min(image, &low, nullptr);
  vips_max(image, &high, nullptr);
  g_sink = low + high;
}

void Average(VipsImage* image) {
  double average = 0.0;
  vips_avg(image, &average, nullptr);
  g_sink = average;
}

void Deviation(VipsImage* image) {
  double deviation = 0.0;
  vips_deviate(image, &deviation, nullptr);
  g_sink = deviation;
}

// Smallest, largest, average and deviation in one pass.
void Stats(VipsImage* image) {
  VipsImage* out = nullptr;
  if (vips_stats(image, &out, nullptr) == 0) g_object_unref(out);
}

void Histogram(VipsImage* image) {
  VipsImage* out = nullptr;
  if (vips_hist_find(image, &out, nullptr) == 0) g_object_unref(out);
}

}  // namespace

std::vector<Contender> VipsPeers(const std::string& operation, const Plane& plane) {
  static const std::map<std::string, std::pair<VipsBandFormat, std::int64_t>> formats{
      {"uint8", {VIPS_FORMAT_UCHAR, 1}},
      {"uint16", {VIPS_FORMAT_USHORT, 2}},
      {"int32", {VIPS_FORMAT_INT, 4}},
      {"float", {VIPS_FORMAT_FLOAT, 4}},
      {"double", {VIPS_FORMAT_DOUBLE, 8}}};
  std::map<std::string, void (*)(VipsImage*)> runs{
      {"minmax", MinMax}, {"minmaxavr", Stats}, {"average", Average}, {"deviation", Deviation}};
  // It has as many bins as the type has values.
  if (plane.type == "uint8") runs["histogram256"] = Histogram;
  if (plane.type == "uint16") runs["histogram65536"] = Histogram;
  const auto run = runs.find(operation);
  const auto format = formats.find(plane.type);
  if (run == runs.end() || format == formats.end()) return {};
  return {{"vips", [pixels = plane.pixels, run = run->second, format = format->second] {
             run(Own(vips_image_new_from_memory(
                         pixels(), static_cast<std::size_t>(kPixels * format.second),
                         static_cast<int>(kWidth), static_cast<int>(kHeight), 1, format.first))
                     .get());
           }}};
}

std::vector<Contender> VipsFromFile(const std::string& file, std::int64_t width,
                                    std::int64_t height) {
  return {{"vips", [=] {
             VipsImage* opened = nullptr;
             if (vips_rawload(file.c_str(), &opened, static_cast<int>(width),
                              static_cast<int>(height), 2, "access", VIPS_ACCESS_SEQUENTIAL,
                              nullptr) != 0) {
               return;
             }
             const Image raw = Own(opened);
             VipsImage* cast = nullptr;
             if (vips_copy(raw.get(), &cast, "format", VIPS_FORMAT_USHORT, "bands", 1, nullptr)) {
               return;
             }
             Stats(Own(cast).get());
           }}};
}

void SetVipsThreads(int threads) {
  Start();
  vips_concurrency_set(threads);
}

}  // namespace korin::bench

#else

namespace korin::bench {

std::vector<Contender> VipsPeers(const std::string&, const Plane&) { return {}; }
std::vector<Contender> VipsFromFile(const std::string&, std::int64_t, std::int64_t) { return {}; }
void SetVipsThreads(int) {}

}  // namespace korin::bench

#endif
