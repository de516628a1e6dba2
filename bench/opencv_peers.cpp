#include "peers.h"

#ifdef KORIN_BENCH_OPENCV
#include <map>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace korin::bench {

namespace {

int DepthOf(const std::string& type) {
  static const std::map<std::string, int> depths{{"uint8", CV_8U},  {"uint16", CV_16U},
                                                 {"int16", CV_16S}, {"int32", CV_32S},
                                                 {"float", CV_32F}, {"double", CV_64F}};
  const auto found = depths.find(type);
  return found == depths.end() ? -1 : found->second;
}

volatile double g_sink;

void MinMax(const cv::Mat& mat) {
  double low = 0.0;
  double high = 0.0;
  cv::minMaxLoc(mat, &low, &high);
  g_sink = low + high;
}

void Deviation(const cv::Mat& mat) {
  cv::Scalar mean;
  cv::Scalar deviation;
  cv::meanStdDev(mat, mean, deviation);
  g_sink = deviation[0];
}

void Histogram(const cv::Mat& mat, int bins) {
  const int channel = 0;
  const float range[] = {0.0f, mat.depth() == CV_8U ? 256.0f : 65536.0f};
  const float* ranges = range;
  cv::Mat histogram;
  cv::calcHist(&mat, 1, &channel, cv::Mat(), histogram, 1, &bins, &ranges);
  g_sink = histogram.at<float>(0);
}

double HighestOf(int depth) {
  return depth == CV_8U ? 255.0 : depth == CV_32S ? 2147483647.0 : 65535.0;
}

// Results go to memory that is there from the run before.
struct Memory {
  cv::Mat out;
  cv::Mat middle;
};

void Normalize(const cv::Mat& mat, Memory& memory, int target) {
  const double scale = HighestOf(target) / 4096.0;
  mat.convertTo(memory.middle, CV_64F, scale, -1000.0 * scale);
  memory.middle.convertTo(memory.out, target);
}

}  // namespace

std::vector<Contender> OpenCvPeers(const std::string& operation, const Plane& plane,
                                   const std::string& to) {
  const int depth = DepthOf(plane.type);
  const int target = DepthOf(to);
  if (depth < 0 || (target < 0 && !to.empty())) return {};
  const auto memory = std::make_shared<Memory>();
  using Run = std::function<void(const cv::Mat&)>;
  std::map<std::string, Run> runs{
      {"minmax", MinMax},
      {"minmaxavr",
       [](const cv::Mat& mat) {
         MinMax(mat);
         g_sink = cv::mean(mat)[0];
       }},
      {"average", [](const cv::Mat& mat) { g_sink = cv::mean(mat)[0]; }},
      {"deviation", Deviation},
      {"fill",
       [memory](const cv::Mat& mat) {
         memory->out.create(mat.size(), mat.type());
         memory->out.setTo(100.0);
       }},
      {"copy", [memory](const cv::Mat& mat) { mat.copyTo(memory->out); }},
      {"normalize", [=](const cv::Mat& mat) { Normalize(mat, *memory, target); }},
      {"minmax+normalize",
       [=](const cv::Mat& mat) {
         cv::normalize(mat, memory->out, 0, HighestOf(target), cv::NORM_MINMAX, target);
       }},
      {"shift_clamp",
       [=](const cv::Mat& mat) { mat.convertTo(memory->out, target, 1.0, -1000.0); }},
      {"static_cast", [=](const cv::Mat& mat) { mat.convertTo(memory->out, target); }}};
  if (depth == CV_8U || depth == CV_16U || depth == CV_32F) {
    runs["histogram256"] = [](const cv::Mat& mat) { Histogram(mat, 256); };
    runs["histogram65536"] = [](const cv::Mat& mat) { Histogram(mat, 65536); };
  }
  const auto found = runs.find(operation);
  if (found == runs.end()) return {};
  return {{"opencv", [pixels = plane.pixels, depth, run = found->second] {
             run(cv::Mat(static_cast<int>(kHeight), static_cast<int>(kWidth), depth,
                         const_cast<void*>(pixels())));
           }}};
}

void SetOpenCvThreads(int threads) {
  cv::setNumThreads(threads);
  cv::parallel_for_(cv::Range(0, 64), [](const cv::Range&) {});
}

}  // namespace korin::bench

#else

namespace korin::bench {

std::vector<Contender> OpenCvPeers(const std::string&, const Plane&, const std::string&) {
  return {};
}
void SetOpenCvThreads(int) {}

}  // namespace korin::bench

#endif
