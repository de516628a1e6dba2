// The sample of pixels that display histograms are made of: a random permutation
// of the columns, one of the rows, and the rule how many of each to take.
#include <algorithm>
#include <cmath>
#include <numeric>

#include "korinimage/config.h"
#include "korinimage/image.h"

namespace {

constexpr std::uint64_t kLeastSamples = 786432;  // 1024 x 768

// A uniform single in [0, 1) from one 32-bit draw. Written out, because standard
// libraries differ in how often they draw and how they keep 1.0 out.
float UniformFloat(std::mt19937& random) {
  const float u = static_cast<float>(random()) / 4294967296.0f;
  return u < 1.0f ? u : 0x1.fffffep-1f;
}

// A random index in 0 ... count - 1. The product may round up to count: ten values
// are tested, then one more is drawn and thrown away, which keeps the sequence.
std::int32_t RandomIndex(std::mt19937& random, std::int64_t count) {
  const auto last = static_cast<float>(count - 1);
  for (int test = 0; test < 10; ++test) {
    const auto index = static_cast<std::int64_t>(UniformFloat(random) * last);
    if (index <= count - 1) return static_cast<std::int32_t>(index);
  }
  (void)UniformFloat(random);
  return static_cast<std::int32_t>(count / 2);
}

// A walk of random transpositions over 0 ... size - 1.
void Shuffle(std::mt19937& random, int size, std::vector<std::int32_t>& indexes) {
  indexes.resize(static_cast<std::size_t>(std::max(size, 0)));
  std::iota(indexes.begin(), indexes.end(), 0);
  for (int i = 0; i < size; ++i) {
    const std::int32_t a = RandomIndex(random, size);
    const std::int32_t b = RandomIndex(random, size);
    std::swap(indexes[static_cast<std::size_t>(a)], indexes[static_cast<std::size_t>(b)]);
  }
}

// A product in 32 bits, sign-extended and then taken as unsigned: how the sampling
// rule counts pixels, wrap included.
std::uint64_t WrappedProduct(std::int32_t a, std::int32_t b) {
  const auto product =
      static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
  return static_cast<std::uint64_t>(std::int64_t{product});
}

}  // namespace

void CImage::InitHistogramCull() {
  const auto config = korin::Config::DefaultConfig();
  m_histogramCullRatio = config->ReadDouble("ChannelPalette", "HistogramCullRatio", 4.0);
  m_histogramCullMin = static_cast<std::uint64_t>(config->ReadInt64(
      "ChannelPalette", "HistogramCullMin", static_cast<std::int64_t>(kLeastSamples)));
}

void CImage::SetHistogramCullParam(double ratio, unsigned int min) {
  m_histogramCullRatio = std::max(1.0, ratio);  // this order also refuses NaN
  m_histogramCullMin = std::max<std::uint64_t>(min, kLeastSamples);
}

bool CImage::IsHistogramCullParam() const { return !m_cullX.empty() && !m_cullY.empty(); }

bool CImage::CreateHistogramCull(int width, int height) {
  DeleteHistogramCull();
  Shuffle(m_cullRandom, width, m_cullX);
  Shuffle(m_cullRandom, height, m_cullY);
  return true;
}

void CImage::DeleteHistogramCull() {
  m_cullX.clear();
  m_cullY.clear();
}

void CImage::RebuildHistogramCull() {
  if (GetWidth() >= 1 && GetHeight() >= 1) CreateHistogramCull(GetWidth(), GetHeight());
}

std::int32_t CImage::GetHistogramCullRAND(int count) { return RandomIndex(m_cullRandom, count); }

std::optional<std::pair<std::int32_t, std::int32_t>> CImage::GetHistogramCull() const {
  const double ratio = m_histogramCullRatio;
  const std::uint64_t wanted = m_histogramCullMin;
  const std::int32_t width = GetWidth();
  const std::int32_t height = GetHeight();
  if (m_cullX.empty() || !(ratio >= 1.0) || wanted == 0 || width <= 0 || height <= 0) {
    return std::nullopt;
  }
  if (wanted > WrappedProduct(width, height)) return std::pair(width, height);
  const auto columns = static_cast<std::int32_t>(width / ratio);
  const auto rows = static_cast<std::int32_t>(height / ratio);
  if (wanted <= WrappedProduct(columns, rows)) {
    return std::pair(std::min(columns, width), std::min(rows, height));
  }
  // About `wanted` samples in the image's aspect ratio. A very narrow image would
  // get no column or no row at all: at least one of each is taken.
  const std::uint64_t area = static_cast<std::uint64_t>(width) * wanted;
  const auto across = static_cast<std::uint64_t>(
      std::sqrt(static_cast<double>(area) / static_cast<double>(height)));
  const std::uint64_t s = std::max<std::uint64_t>(across, 1);
  const std::uint64_t t = std::max<std::uint64_t>(wanted / s, 1);
  return std::pair(
      static_cast<std::int32_t>(std::min<std::uint64_t>(s, static_cast<std::uint64_t>(width))),
      static_cast<std::int32_t>(std::min<std::uint64_t>(t, static_cast<std::uint64_t>(height))));
}

bool CImage::GetHistogramCull(int* x, int* y) const {
  const auto counts = GetHistogramCull();
  if (x == nullptr || y == nullptr || !counts) return false;
  *x = counts->first;
  *y = counts->second;
  return true;
}
