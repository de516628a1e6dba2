// Loading a frame of 24 megapixels from a FITS file in the system's cache, beside the
// FITS library's own read of the same pixels into plain memory. Prints lines for
// ratios.py.
//   korin_file_bench [--quick]
#include <fitsio.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "korinimage/io/fits_file.h"
#include "korinimage/korinimage.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr LONGLONG kWidth = 6000;
constexpr LONGLONG kHeight = 4000;

void WriteFrame(const std::string& name) {
  std::vector<std::uint16_t> pixels(static_cast<std::size_t>(kWidth * kHeight));
  std::mt19937 random(1);
  for (auto& pixel : pixels) pixel = static_cast<std::uint16_t>(1000 + random() % 4096);
  fitsfile* file = nullptr;
  int status = 0;
  LONGLONG axes[] = {kWidth, kHeight};
  fits_create_file(&file, ("!" + name).c_str(), &status);
  fits_create_imgll(file, USHORT_IMG, 2, axes, &status);
  fits_write_img(file, TUSHORT, 1, kWidth * kHeight, pixels.data(), &status);
  fits_close_file(file, &status);
}

std::shared_ptr<CVmManager> Manager(CVmManager::AllocationPolicy policy) {
  auto configuration = CVmManagerConfiguration::DefaultConfiguration();
  configuration->MemoryRatio = 0;
  configuration->MinMemorySize = 1000;
  auto manager = CVmManager::Create(std::move(configuration));
  manager->SetAllocationPolicy(policy);
  return manager;
}

void SweepCaches() {
  static std::vector<std::uint64_t> bytes(std::size_t{128 << 20} / 8);
  for (auto& word : bytes) ++word;
}

template <typename Run>
double Time(Run&& run) {
  SweepCaches();
  const auto start = Clock::now();
  run();
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

}  // namespace

int main(int count, char** arguments) {
  const bool quick = count > 1 && std::string(arguments[1]) == "--quick";
  const auto path = std::filesystem::temp_directory_path() / "korin_bench_frame.fits";
  const std::string name = path.string();
  WriteFrame(name);
  const auto blocks = Manager(CVmManager::AllocationPolicy::Blocks);
  const auto planes = Manager(CVmManager::AllocationPolicy::Planes);
  std::vector<std::uint16_t> pixels(static_cast<std::size_t>(kWidth * kHeight));
  std::vector<double> times[3];
  for (int round = -1; round < (quick ? 3 : 9); ++round) {
    const double all[] = {
        Time([&] { (void)korin::LoadFits(blocks, path); }),
        Time([&] { (void)korin::LoadFits(planes, path); }),
        Time([&] {
          fitsfile* file = nullptr;
          int status = 0;
          int missing = 0;
          fits_open_diskfile(&file, name.c_str(), READONLY, &status);
          fits_read_img(file, TUSHORT, 1, kWidth * kHeight, nullptr, pixels.data(), &missing,
                        &status);
          fits_close_file(file, &status);
        }),
    };
    for (std::size_t i = 0; round >= 0 && i < 3; ++i) times[i].push_back(all[i]);
  }
  const char* who[] = {"row", "kernel", "cfitsio"};
  for (std::size_t i = 0; i < 3; ++i) {
    std::nth_element(times[i].begin(), times[i].begin() + times[i].size() / 2, times[i].end());
    std::printf("time load_fits uint16 %s 1 %.1f\n", who[i], times[i][times[i].size() / 2]);
  }
  std::filesystem::remove(path);
}
