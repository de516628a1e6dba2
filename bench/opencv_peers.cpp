#include "peers.h"

#ifdef KORIN_BENCH_OPENCV
#include <map>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace korin::bench {

namespace {

int DepthOf(const std::string& type) {
  static const std::map<std::string, int> depths{{"uint8", CV_8U},
                                                 {"uint16", CV_16U},
                                                 {"int32", CV_32S},
                                                 {"float", CV_32F},
                                                 {"double", CV_64F}};
  const auto found = depths.find(type);
  return found == depths.end() ? -1 : found->second;
}

volatile double g_sink;

void Histogram(const cv::Mat& mat, int bins, float end) {
  const int channel = 0;
  const float range[] = {0.0f, end};
  const float* ranges = range;
  cv::Mat histogram;
  cv::calcHist(&mat, 1, &channel, cv::Mat(), histogram, 1, &bins, &ranges);
  g_sink = histogram.at<float>(0);
}

double HighestOf(int depth) { return depth == CV_8U ? 255.0 : depth == CV_16U ? 65535.0 : 2e9; }

}  // namespace

std::vector<Contender> OpenCvPeers(const std::string& operation, const Plane& plane,
                                   const std::string& to) {
  const int depth = DepthOf(plane.type);
  if (depth < 0) return {};
  const cv::Mat mat(static_cast<int>(plane.height), static_cast<int>(plane.width), depth,
                    const_cast<void*>(plane.pixels));
  const auto peer = [](auto&& run) { return std::vector<Contender>{{"opencv", run}}; };
  const auto minMax = [mat] {
    double low = 0.0;
    double high = 0.0;
    cv::minMaxLoc(mat, &low, &high);
    g_sink = low + high;
  };
  if (operation == "minmax") return peer(minMax);
  if (operation == "minmaxavr") {
    return peer([minMax, mat] {
      minMax();
      g_sink = cv::mean(mat)[0];
    });
  }
  if (operation == "average") return peer([mat] { g_sink = cv::mean(mat)[0]; });
  if (operation == "deviation") {
    return peer([mat] {
      cv::Scalar mean;
      cv::Scalar deviation;
      cv::meanStdDev(mat, mean, deviation);
      g_sink = deviation[0];
    });
  }
  const bool hasHistogram = depth == CV_8U || depth == CV_16U || depth == CV_32F;
  const float end = depth == CV_8U ? 256.0f : 65536.0f;
  if (operation == "histogram256" && hasHistogram) {
    return peer([mat, end] { Histogram(mat, 256, end); });
  }
  if (operation == "histogram65536" && hasHistogram) {
    return peer([mat, end] { Histogram(mat, 65536, end); });
  }
  const int target = DepthOf(to);
  if (target < 0) return {};
  // Both steps reuse their results' memory.
  const auto out = std::make_shared<cv::Mat>();
  if (operation == "normalize") {
    const auto middle = std::make_shared<cv::Mat>();
    return peer([=] {
      const double scale = HighestOf(target) / 4096.0;
      mat.convertTo(*middle, CV_64F, scale, -1000.0 * scale);
      middle->convertTo(*out, target);
    });
  }
  if (operation == "minmax+normalize") {
    return peer([=] { cv::normalize(mat, *out, 0, HighestOf(target), cv::NORM_MINMAX, target); });
  }
  return {};
}

void SetOpenCvThreads(int threads) { cv::setNumThreads(threads); }

}  // namespace korin::bench

#else

namespace korin::bench {

std::vector<Contender> OpenCvPeers(const std::string&, const Plane&, const std::string&) {
  return {};
}
void SetOpenCvThreads(int) {}

}  // namespace korin::bench

#endif
