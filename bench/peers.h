#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "rounds.h"

// Other programs' libraries doing the same work, as far as they were found.
namespace korin::bench {

// A plane of pixels in plain memory; `type` is uint8, uint16, int32, float or double.
struct Plane {
  const void* pixels = nullptr;
  std::int64_t width = 0;
  std::int64_t height = 0;
  std::string type;
};

// Contenders for "minmax", "minmaxavr", "average", "deviation", "histogram256",
// "histogram65536"; "normalize" (uint8, uint16 and int32 by a known range) and
// "minmax+normalize" with the destination's type.
std::vector<Contender> OpenCvPeers(const std::string& operation, const Plane& plane,
                                   const std::string& to = {});
std::vector<Contender> VipsPeers(const std::string& operation, const Plane& plane);
// Smallest and largest sample of a file of raw uint16 pixels.
std::vector<Contender> VipsFromFile(const std::string& file, std::int64_t width,
                                    std::int64_t height);

void SetOpenCvThreads(int threads);
void SetVipsThreads(int threads);

}  // namespace korin::bench
