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

// Smallest, largest, average and deviation in one pass.
void Stats(VipsImage* image) {
  VipsImage* out = nullptr;
  if (vips_stats(image, &out, nullptr) == 0) g_object_unref(out);
}

}  // namespace

std::vector<Contender> VipsPeers(const std::string& operation, const Plane& plane) {
  static const std::map<std::string, std::pair<VipsBandFormat, std::size_t>> formats{
      {"uint8", {VIPS_FORMAT_UCHAR, 1}},
      {"uint16", {VIPS_FORMAT_USHORT, 2}},
      {"int32", {VIPS_FORMAT_INT, 4}},
      {"float", {VIPS_FORMAT_FLOAT, 4}},
      {"double", {VIPS_FORMAT_DOUBLE, 8}}};
  const auto found = formats.find(plane.type);
  if (found == formats.end()) return {};
  Start();
  const Image image = Own(vips_image_new_from_memory(
      plane.pixels, static_cast<std::size_t>(plane.width * plane.height) * found->second.second,
      static_cast<int>(plane.width), static_cast<int>(plane.height), 1, found->second.first));
  const auto peer = [](const char* who, auto&& run) { return Contender{who, run}; };
  const auto stats = peer("vips", [image] { Stats(image.get()); });
  if (operation == "minmax") return {peer("vips", [image] { MinMax(image.get()); })};
  if (operation == "minmaxavr") return {stats};
  if (operation == "average") {
    return {peer("vips", [image] {
      double average = 0.0;
      vips_avg(image.get(), &average, nullptr);
      g_sink = average;
    })};
  }
  if (operation == "deviation") {
    return {peer("vips", [image] {
      double deviation = 0.0;
      vips_deviate(image.get(), &deviation, nullptr);
      g_sink = deviation;
    })};
  }
  if ((operation == "histogram256" && plane.type == "uint8") ||
      (operation == "histogram65536" && plane.type == "uint16")) {
    return {peer("vips", [image] {
      VipsImage* out = nullptr;
      if (vips_hist_find(image.get(), &out, nullptr) == 0) g_object_unref(out);
    })};
  }
  return {};
}

std::vector<Contender> VipsFromFile(const std::string& file, std::int64_t width,
                                    std::int64_t height) {
  Start();
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
