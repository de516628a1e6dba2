#pragma once

#include <cstdint>
#include <vector>

namespace korin::app {

// What a synthetic camera frame shows.
struct StarFieldOptions {
  int width = 1280;
  int height = 1024;
  int planes = 1;
  int stars = -1;  // -1: one for each 3000 pixels
  std::uint64_t seed = 1;
  double sky = 900.0;       // counts of the sky in the middle of the frame
  double gradient = 250.0;  // rise of the sky from corner to corner, in counts
  double readNoise = 8.0;   // counts
  double gain = 1.6;        // electrons a count
  double fwhm = 3.2;        // width of a star in pixels
  int hotPixels = -1;       // -1: one for each 20000 pixels
};

// A frame of an imaginary camera: sky with a gradient and vignetting, stars of many
// brightnesses, some close together, shot and read noise, hot pixels, saturation at
// 65535. Every row can be made by itself; the same options give the same pixels.
class StarField {
 public:
  explicit StarField(const StarFieldOptions& options);

  // Fills `width` pixels of row y of a plane.
  void MakeRow(int plane, int y, std::uint16_t* pixels) const;
  int StarCount() const { return static_cast<int>(m_stars.size()); }

 private:
  struct Star {
    double x;
    double y;
    double peak;    // counts above the sky
    double colour;  // -1 blue to 1 red
    double reach;   // pixels beyond which it does not show
  };

  void AddStars(const Star& star, double* counts, int plane, int y) const;

  StarFieldOptions m_options;
  std::vector<Star> m_stars;                       // by y - reach
  std::vector<std::vector<std::uint32_t>> m_rows;  // stars that may touch a band of rows
  struct HotPixel {
    int plane;
    int x;
    int y;
    double counts;
  };
  std::vector<HotPixel> m_hot;  // by plane, then y
};

}  // namespace korin::app
