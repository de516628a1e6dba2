#include <algorithm>

#include "frames.h"
#include "kernels/kernel_calls.h"
#include "vm/region_cache.h"

namespace korin::bench {

namespace {

constexpr int kPlanes = 3;
constexpr const char* kOperation = "change_bits";
constexpr const char* kType = "uint16->uint8";

// Images that are converted in place, so that they are made anew before each run; the
// memory of the last result is there to be used again.
struct Pictures {
  Pictures() {
    // Code, threads and tables are there before memory is measured.
    CImage small = ImageOf<std::uint16_t>(manager, 512, 512, kPlanes);
    Change(small);
  }

  CImage& Make(Policy policy) {
    manager->SetAllocationPolicy(policy);
    CImage& image = images[policy];
    image = ImageOf<std::uint16_t>(manager, kWidth, kHeight, kPlanes);
    for (int plane = 0; plane < kPlanes; ++plane) SetPixels(image, plane, pixels.data());
    return image;
  }

  static void Change(CImage& image) {
    image.ChangeBits(CImage::DataTypeInt8, false, CImage::ChangeBitsLevel::MinMax,
                     CImage::ProgressPtr());
  }

  std::vector<std::uint16_t> pixels = SkyPixels<std::uint16_t>();
  std::shared_ptr<CVmManager> manager = ManagerOf(3000);
  std::map<Policy, CImage> images;
};

// Beside what the image and its result take together, with one block.
Figures Peak(Policy policy) {
  auto& pictures = Shared<Pictures>();
  // What is kept to be used again is free for these images.
  const std::int64_t before = ResidentBytes() - vm::RegionCache::Instance().GetFigures().warmFree;
  CImage& image = pictures.Make(policy);
  const auto bytes = [&image] {
    const auto& handle = *image.Store()->GetVmHandle();
    return static_cast<std::int64_t>(handle.GetBlockCount()) * handle.GetBlockSize();
  };
  std::int64_t needed = bytes();
  const std::int64_t peak = PeakDuring([&image] { Pictures::Change(image); }) - before;
  needed += bytes() + image.Store()->GetVmHandle()->GetBlockSize();
  constexpr double kMiB = 1 << 20;
  return {{"peak_MiB", static_cast<double>(peak) / kMiB},
          {"source_result_and_one_block_MiB", static_cast<double>(needed) / kMiB}};
}

// The kernels that the conversion cannot do without, on memory that is there already.
struct Kernels {
  void Run() {
    std::uint16_t low = 65535;
    std::uint16_t high = 0;
    for (const auto& source : sources) {
      std::uint16_t min = 0;
      std::uint16_t max = 0;
      (void)kernels::MinMax(source.data(), kWidth, kHeight, kWidth, min, max);
      low = std::min(low, min);
      high = std::max(high, max);
    }
    for (std::size_t plane = 0; plane < kPlanes; ++plane) {
      (void)kernels::NormalizeMapping(sources[plane].data(), results[plane].data(), kWidth, kHeight,
                                      kWidth, kWidth, 1.0, 0.0, static_cast<double>(low),
                                      static_cast<double>(high));
    }
  }

  std::vector<std::vector<std::uint16_t>> sources{kPlanes, SkyPixels<std::uint16_t>()};
  std::vector<std::vector<std::uint8_t>> results{kPlanes, SkyPixels<std::uint8_t>()};
};

}  // namespace

// uint16 to 8 bits by minimum and maximum, three planes, in place.
void AddChangeBits() {
  Contest contest{.operation = kOperation, .type = kType};
  for (const auto& [who, policy] : kPaths) {
    contest.contenders.push_back(
        {who, [policy = policy] { Pictures::Change(Shared<Pictures>().images.at(policy)); },
         [policy = policy] { Shared<Pictures>().Make(policy); }});
    AddMemory(kOperation, kType, who, [policy = policy] { return Peak(policy); });
  }
  contest.contenders.push_back({"kernels", [] { Shared<Kernels>().Run(); }});
  Add(contest);
}

}  // namespace korin::bench
