#include "star_field.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <tuple>

namespace korin::app {

namespace {

constexpr int kBandRows = 16;
constexpr double kSaturation = 65535.0;
constexpr double kMoffat = 2.8;  // falloff of a star's wings

// A small generator of its own: the standard library's distributions differ between
// implementations, and frames must not.
class Random {
 public:
  explicit Random(std::uint64_t seed) : m_state(seed) {}

  std::uint64_t Next() {
    m_state += 0x9E3779B97F4A7C15U;
    std::uint64_t z = m_state;
    z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9U;
    z = (z ^ (z >> 27U)) * 0x94D049BB133111EBU;
    return z ^ (z >> 31U);
  }

  double Uniform() { return static_cast<double>(Next() >> 11U) * 0x1p-53; }

  // Mean 0, deviation 1.
  double Normal() {
    if (m_hasSpare) {
      m_hasSpare = false;
      return m_spare;
    }
    const double radius = std::sqrt(-2.0 * std::log(1.0 - Uniform()));
    const double angle = 2.0 * std::numbers::pi * Uniform();
    m_spare = radius * std::sin(angle);
    m_hasSpare = true;
    return radius * std::cos(angle);
  }

 private:
  std::uint64_t m_state;
  double m_spare = 0.0;
  bool m_hasSpare = false;
};

int CountFor(int wanted, std::int64_t pixels, std::int64_t pixelsEach) {
  if (wanted >= 0) return wanted;
  return static_cast<int>(std::min<std::int64_t>(2000000, pixels / pixelsEach));
}

}  // namespace

StarField::StarField(const StarFieldOptions& options) : m_options(options) {
  const std::int64_t pixels = std::int64_t{options.width} * options.height;
  Random random(options.seed);
  const int stars = CountFor(options.stars, pixels, 3000);
  for (int i = 0; i < stars; ++i) {
    Star star{};
    star.x = random.Uniform() * options.width;
    star.y = random.Uniform() * options.height;
    // Ten times fainter, about five times as many; the brightest saturate.
    star.peak = 60.0 * std::pow(1.0 - random.Uniform() * 0.99999, -1.0 / 0.72);
    star.peak = std::min(star.peak, 400000.0);
    star.colour = std::clamp(random.Normal() * 0.4, -1.0, 1.0);
    const double width = options.fwhm / (2.0 * std::sqrt(std::exp2(1.0 / kMoffat) - 1.0));
    star.reach = width * std::sqrt(std::pow(star.peak / 0.3, 1.0 / kMoffat)) + 1.0;
    m_stars.push_back(star);
  }
  m_rows.resize(static_cast<std::size_t>((options.height + kBandRows - 1) / kBandRows));
  for (std::size_t i = 0; i < m_stars.size(); ++i) {
    const Star& star = m_stars[i];
    const int first = std::clamp(static_cast<int>(star.y - star.reach), 0, options.height - 1);
    const int last = std::clamp(static_cast<int>(star.y + star.reach), 0, options.height - 1);
    for (int band = first / kBandRows; band <= last / kBandRows; ++band) {
      m_rows[static_cast<std::size_t>(band)].push_back(static_cast<std::uint32_t>(i));
    }
  }
  const int hot = CountFor(options.hotPixels, pixels, 20000);
  for (int i = 0; i < hot; ++i) {
    HotPixel pixel{};
    pixel.plane = static_cast<int>(random.Next() % static_cast<std::uint64_t>(options.planes));
    pixel.x = static_cast<int>(random.Next() % static_cast<std::uint64_t>(options.width));
    pixel.y = static_cast<int>(random.Next() % static_cast<std::uint64_t>(options.height));
    pixel.counts = 2000.0 + 60000.0 * random.Uniform() * random.Uniform();
    m_hot.push_back(pixel);
  }
  std::sort(m_hot.begin(), m_hot.end(), [](const HotPixel& a, const HotPixel& b) {
    return std::tie(a.plane, a.y, a.x) < std::tie(b.plane, b.y, b.x);
  });
}

void StarField::AddStars(const Star& star, double* counts, int plane, int y) const {
  const double dy = y - star.y;
  if (std::abs(dy) > star.reach) return;
  const double width = m_options.fwhm / (2.0 * std::sqrt(std::exp2(1.0 / kMoffat) - 1.0));
  // Red, green and blue see a star of a colour differently.
  const double tint = m_options.planes == 3 ? 1.0 + 0.5 * star.colour * (1 - plane) : 1.0;
  const int first = std::max(0, static_cast<int>(star.x - star.reach));
  const int last = std::min(m_options.width - 1, static_cast<int>(star.x + star.reach));
  for (int x = first; x <= last; ++x) {
    const double dx = x - star.x;
    const double distance = (dx * dx + dy * dy) / (width * width);
    counts[x] += tint * star.peak * std::pow(1.0 + distance, -kMoffat);
  }
}

void StarField::MakeRow(int plane, int y, std::uint16_t* pixels) const {
  const auto width = static_cast<std::size_t>(m_options.width);
  std::vector<double> counts(width);
  const double v = (y + 0.5) / m_options.height - 0.5;
  for (std::size_t x = 0; x < width; ++x) {
    const double u = (static_cast<double>(x) + 0.5) / m_options.width - 0.5;
    const double vignette = 1.0 - 0.25 * (u * u + v * v);
    counts[x] = (m_options.sky + m_options.gradient * 0.5 * (u + v)) * vignette;
  }
  for (const std::uint32_t index : m_rows[static_cast<std::size_t>(y / kBandRows)]) {
    AddStars(m_stars[index], counts.data(), plane, y);
  }
  // Noise has a generator of its own for each row: rows can be made in any order.
  Random random(m_options.seed * 0x2545F4914F6CDD1DU +
                static_cast<std::uint64_t>(plane) * 0x100000001B3U + static_cast<std::uint64_t>(y) +
                1);
  random.Next();
  for (std::size_t x = 0; x < width; ++x) {
    const double light = std::max(counts[x], 0.0);
    const double noise =
        std::sqrt(light / m_options.gain + m_options.readNoise * m_options.readNoise);
    counts[x] += noise * random.Normal();
  }
  const HotPixel from{plane, 0, y, 0.0};
  auto hot =
      std::lower_bound(m_hot.begin(), m_hot.end(), from, [](const HotPixel& a, const HotPixel& b) {
        return std::tie(a.plane, a.y) < std::tie(b.plane, b.y);
      });
  for (; hot != m_hot.end() && hot->plane == plane && hot->y == y; ++hot) {
    counts[static_cast<std::size_t>(hot->x)] += hot->counts;
  }
  for (std::size_t x = 0; x < width; ++x) {
    pixels[x] =
        static_cast<std::uint16_t>(std::clamp(std::floor(counts[x] + 0.5), 0.0, kSaturation));
  }
}

}  // namespace korin::app
