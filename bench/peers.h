#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "harness.h"

// Other programs' libraries doing the same work, as far as they were found.
namespace korin::bench {

// A frame of pixels in plain memory; `type` is a name such as uint16, int32 or double.
struct Plane {
  std::function<const void*()> pixels;
  std::string type;
};

// Contenders for "minmax", "minmaxavr", "average", "deviation", "histogram256",
// "histogram65536", "fill", "copy"; with the destination's type for "normalize" (by a
// known range), "minmax+normalize", "shift_clamp" and "static_cast".
std::vector<Contender> OpenCvPeers(const std::string& operation, const Plane& plane,
                                   const std::string& to = {});
std::vector<Contender> VipsPeers(const std::string& operation, const Plane& plane);
// Smallest and largest sample of a file of raw uint16 pixels.
std::vector<Contender> VipsFromFile(const std::string& file, std::int64_t width,
                                    std::int64_t height);

void SetOpenCvThreads(int threads);
void SetVipsThreads(int threads);

}  // namespace korin::bench
