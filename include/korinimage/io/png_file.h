#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

#include "korinimage/image.h"
#include "korinimage/io/export.h"
#include "korinimage/progress.h"

namespace korin {

// Physical values shown as black and white.
struct PngLevel {
  double black = 0.0;
  double white = 1.0;
};

struct PngOptions {
  static constexpr int kAllPlanes = -1;
  int bits = 8;                  // per sample: 8 or 16
  int plane = kAllPlanes;        // one plane as grey; all: grey for 1 plane, RGB for 3
  bool flip = false;             // true: the last row of the image on top, as FITS is shown
  std::vector<PngLevel> levels;  // per plane of the image; empty: its own display levels
};

// Draws an image as grey or RGB. A sample is (physical - black) / (white - black)
// of the full scale, cut to it and rounded to the nearest code; NaN is drawn white.
// Rows are streamed. `file` is replaced only when the picture is complete: on any
// failure, a throwing sink included, nothing is left. The pixels are read only.
//
// Throws korin::FileError: options that do not fit the image (depth, plane, plane
// count, a level without a span), a file that cannot be written;
// korin::CVmMemoryAllocationError when a block finds no room;
// korin::CVmManagerHandleDeletedError for an image without pixels.
KORINIMAGE_IO_API void SavePng(CImage& image, const std::filesystem::path& file,
                               const PngOptions& options = {},
                               const std::shared_ptr<Progress>& progress = {});

// Writes a picture that the caller makes: `row(y, samples)` fills the width x
// channels 8-bit samples of row y, top row first. 1 channel is grey, 3 are RGB; all
// three numbers are positive. Throws korin::FileError and whatever `row` throws;
// nothing is left then.
KORINIMAGE_IO_API void SavePngRows(const std::filesystem::path& file, int width, int height,
                                   int channels,
                                   const std::function<void(int, std::uint8_t*)>& row);

}  // namespace korin
