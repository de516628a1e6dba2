#include <tuple>

#include "benches.h"
#include "frames.h"
#include "kernels/kernel_calls.h"

namespace korin::bench {

// uint16 to 8 bits by minimum and maximum, three planes, in place; beside the time of
// the kernels that it cannot do without, on memory that is there already.
void BenchChangeBits() {
  if (!Wanted("change_bits")) return;
  constexpr int kPlanes = 3;
  const auto pixels = SkyPixels<std::uint16_t>();
  const auto manager = ManagerOf(3000);
  const auto whole = [&](const char* who, Policy policy) {
    // The image is made anew before each run; the memory of the last result is there
    // to be used again.
    auto image = std::make_shared<CImage>();
    const auto prepare = [&, policy, image] {
      manager->SetAllocationPolicy(policy);
      *image = CImage(manager, CImage::DataTypeInt16, static_cast<int>(kWidth),
                      static_cast<int>(kHeight), kPlanes, 1.0, 0.0, false, CImage::ProgressPtr());
      for (int plane = 0; plane < kPlanes; ++plane) SetPixels(*image, plane, pixels.data());
    };
    const auto run = [image] {
      image->ChangeBits(CImage::DataTypeInt8, false, CImage::ChangeBitsLevel::MinMax,
                        CImage::ProgressPtr());
    };
    return std::pair(image, Contender{who, run, prepare});
  };
  {
    // Code, threads and tables are there before memory is measured.
    CImage small(manager, CImage::DataTypeInt16, 1000, 1000, kPlanes, 1.0, 0.0, false,
                 CImage::ProgressPtr());
    small.ChangeBits(CImage::DataTypeInt8, false, CImage::ChangeBitsLevel::MinMax,
                     CImage::ProgressPtr());
  }
  // Memory that is kept to be used again never exceeds what was in use together.
  const auto bytesOf = [](const CImage& image) {
    const auto& handle = *const_cast<CVmImage&>(*image.Store()).GetVmHandle();
    return static_cast<double>(handle.GetBlockCount() * handle.GetBlockSize());
  };
  const std::int64_t before = ResidentBytes();
  for (const auto& [who, policy] : {std::pair("row", Policy::Blocks), {"kernel", Policy::Planes}}) {
    const auto [image, contender] = whole(who, policy);
    contender.prepare();
    double images = bytesOf(*image);
    ResetPeak();
    contender.run();
    const double peak = static_cast<double>(PeakBytes() - before);
    images += bytesOf(*image);
    const auto block = static_cast<double>(image->Store()->GetVmHandle()->GetBlockSize());
    const auto fact = [who = who](const char* name, double value) {
      Fact("change_bits", "uint16->uint8", std::string(name) + who, value / (1 << 20));
    };
    fact("source_result_and_one_block_MiB_", images + block);
    fact("peak_MiB_", peak);
  }

  const auto kernelPath = whole("kernel", Policy::Planes).second;
  const auto rowPath = whole("row", Policy::Blocks).second;
  const std::vector<std::vector<std::uint16_t>> sources(kPlanes, pixels);
  std::vector<std::vector<std::uint8_t>> results(kPlanes, std::vector<std::uint8_t>(pixels.size()));
  const auto kernels = [&] {
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
  };
  Run({.operation = "change_bits",
       .type = "uint16->uint8",
       .contenders = {kernelPath, rowPath, {"kernels", kernels}}});
}

}  // namespace korin::bench
