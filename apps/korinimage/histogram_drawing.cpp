#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <string_view>

#include "histogram_plot.h"
#include "korinimage/io/png_file.h"

namespace korin::app {

namespace {

struct Colour {
  std::uint8_t red;
  std::uint8_t green;
  std::uint8_t blue;
};

constexpr Colour kPaper{250, 250, 247};
constexpr Colour kGrid{222, 222, 218};
constexpr Colour kInk{60, 60, 60};
constexpr std::array<Colour, 4> kCurves = {Colour{196, 56, 48}, Colour{46, 140, 62},
                                           Colour{52, 92, 190}, Colour{70, 90, 110}};

constexpr int kWidth = 1000;
constexpr int kHeight = 560;
constexpr int kLeft = 90;
constexpr int kRight = 30;
constexpr int kTop = 30;
constexpr int kBottom = 50;
constexpr int kPlotWidth = kWidth - kLeft - kRight;
constexpr int kPlotHeight = kHeight - kTop - kBottom;

// Characters of numbers, 5 x 7 dots, a row per byte, leftmost dot in bit 4.
struct Glyph {
  char character;
  std::array<std::uint8_t, 7> rows;
};
constexpr std::array<Glyph, 14> kGlyphs = {{
    {'0', {14, 17, 19, 21, 25, 17, 14}},
    {'1', {4, 12, 4, 4, 4, 4, 14}},
    {'2', {14, 17, 1, 2, 4, 8, 31}},
    {'3', {31, 2, 4, 2, 1, 17, 14}},
    {'4', {2, 6, 10, 18, 31, 2, 2}},
    {'5', {31, 16, 30, 1, 1, 17, 14}},
    {'6', {6, 8, 16, 30, 17, 17, 14}},
    {'7', {31, 1, 2, 4, 8, 8, 8}},
    {'8', {14, 17, 17, 14, 17, 17, 14}},
    {'9', {14, 17, 17, 15, 1, 2, 12}},
    {'.', {0, 0, 0, 0, 0, 12, 12}},
    {'-', {0, 0, 0, 31, 0, 0, 0}},
    {'+', {0, 4, 4, 31, 4, 4, 0}},
    {'e', {0, 0, 14, 17, 31, 16, 14}},
}};
constexpr int kDot = 2;             // pixels a dot
constexpr int kAdvance = 6 * kDot;  // from character to character
constexpr int kGlyphHeight = 7 * kDot;

class Canvas {
 public:
  Canvas() : m_samples(static_cast<std::size_t>(kWidth) * kHeight * 3) {
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) Set(x, y, kPaper);
    }
  }

  void Set(int x, int y, const Colour& colour) {
    if (x < 0 || y < 0 || x >= kWidth || y >= kHeight) return;
    std::uint8_t* sample = m_samples.data() + (y * kWidth + x) * 3;
    sample[0] = colour.red;
    sample[1] = colour.green;
    sample[2] = colour.blue;
  }

  // Lets what lies below shine through.
  void Tint(int x, int y, const Colour& colour) {
    std::uint8_t* sample = m_samples.data() + (y * kWidth + x) * 3;
    const auto mix = [](int below, int above) {
      return static_cast<std::uint8_t>((below * 3 + above) / 4);
    };
    Set(x, y,
        {mix(sample[0], colour.red), mix(sample[1], colour.green), mix(sample[2], colour.blue)});
  }

  void Text(int x, int y, std::string_view text) {
    for (const char c : text) {
      for (const Glyph& glyph : kGlyphs) {
        if (glyph.character == c) Draw(x, y, glyph);
      }
      x += kAdvance;
    }
  }

  const std::uint8_t* Row(int y) const { return m_samples.data() + y * kWidth * 3; }

 private:
  void Draw(int x, int y, const Glyph& glyph) {
    for (int dot = 0; dot < 5 * kDot * kGlyphHeight; ++dot) {
      const int dx = dot % (5 * kDot);
      const int dy = dot / (5 * kDot);
      const auto row = glyph.rows[static_cast<std::size_t>(dy / kDot)];
      if (((row >> (4 - dx / kDot)) & 1) != 0) Set(x + dx, y + dy, kInk);
    }
  }

  std::vector<std::uint8_t> m_samples;
};

int TextWidth(std::string_view text) { return static_cast<int>(text.size()) * kAdvance - kDot; }

void DrawAxes(Canvas& canvas, const Bounds& bounds, std::int64_t largest, bool linear) {
  constexpr int kTicks = 4;
  for (int i = 0; i <= kTicks; ++i) {
    const int x = kLeft + kPlotWidth * i / kTicks;
    for (int y = kTop; y < kTop + kPlotHeight; ++y) canvas.Set(x, y, kGrid);
    const std::string label =
        fmt::format("{:.5g}", bounds.min + (bounds.max - bounds.min) * i / kTicks);
    const int start = std::clamp(x - TextWidth(label) / 2, 0, kWidth - TextWidth(label));
    canvas.Text(start, kTop + kPlotHeight + 12, label);
  }
  // Counts: powers of ten, or quarters of the largest.
  const auto line = [&](std::int64_t count) {
    const int y = kTop + kPlotHeight -
                  static_cast<int>(std::llround(BarHeight(count, largest, linear) * kPlotHeight));
    for (int x = kLeft; x < kLeft + kPlotWidth; ++x) canvas.Set(x, y, kGrid);
    const std::string label =
        count < 100000 ? std::to_string(count) : fmt::format("{:.3g}", static_cast<double>(count));
    canvas.Text(std::max(0, kLeft - 8 - TextWidth(label)), y - kGlyphHeight / 2, label);
  };
  if (linear) {
    for (int i = 1; i <= kTicks; ++i) line(largest * i / kTicks);
  } else {
    for (std::int64_t power = 1; power <= largest && power > 0; power *= 10) line(power);
  }
}

void DrawCurve(Canvas& canvas, const Histogram& histogram, std::int64_t largest, bool linear,
               const Colour& colour) {
  const auto bins = static_cast<std::int64_t>(histogram.counts.size());
  int last = kTop + kPlotHeight;
  for (int x = 0; x < kPlotWidth; ++x) {
    // The highest of the bins that this column stands for.
    const std::int64_t from = bins * x / kPlotWidth;
    const std::int64_t to = std::max(from + 1, bins * (x + 1) / kPlotWidth);
    std::int64_t count = 0;
    for (std::int64_t i = from; i < to; ++i) {
      count = std::max(count, histogram.counts[static_cast<std::size_t>(i)]);
    }
    const int y = kTop + kPlotHeight -
                  static_cast<int>(std::llround(BarHeight(count, largest, linear) * kPlotHeight));
    for (int fill = y; fill < kTop + kPlotHeight; ++fill) canvas.Tint(kLeft + x, fill, colour);
    for (int edge = std::min(y, last); edge <= std::max(y, last); ++edge) {
      canvas.Set(kLeft + x, edge, colour);
    }
    last = y;
  }
}

}  // namespace

void DrawHistograms(const std::vector<PlaneHistogram>& histograms, bool linear,
                    const std::filesystem::path& file) {
  std::int64_t largest = 0;
  for (const PlaneHistogram& plane : histograms) {
    largest = std::max(
        largest, *std::max_element(plane.histogram.counts.begin(), plane.histogram.counts.end()));
  }
  Canvas canvas;
  DrawAxes(canvas, histograms.front().histogram.bounds, largest, linear);
  for (std::size_t i = 0; i < histograms.size(); ++i) {
    const Colour& colour = histograms.size() == 3 ? kCurves[i] : kCurves[3];
    DrawCurve(canvas, histograms[i].histogram, largest, linear, colour);
  }
  for (int x = kLeft; x < kLeft + kPlotWidth; ++x) canvas.Set(x, kTop + kPlotHeight, kInk);
  for (int y = kTop; y <= kTop + kPlotHeight; ++y) canvas.Set(kLeft, y, kInk);
  SavePngRows(file, kWidth, kHeight, 3, [&](int y, std::uint8_t* samples) {
    std::copy_n(canvas.Row(y), kWidth * 3, samples);
  });
}

}  // namespace korin::app
