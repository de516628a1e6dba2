#include "frames.h"

#ifdef KORIN_BENCH_FILES
#include <fitsio.h>

#include <filesystem>

#include "korinimage/io/fits_file.h"

namespace korin::bench {

namespace {

// A frame of 24 megapixels in a FITS file in the system's cache.
struct FrameFile {
  FrameFile() {
    int status = 0;
    fitsfile* file = nullptr;
    LONGLONG axes[] = {kWidth, kHeight};
    fits_create_file(&file, ("!" + path.string()).c_str(), &status);
    fits_create_imgll(file, USHORT_IMG, 2, axes, &status);
    fits_write_img(file, TUSHORT, 1, kPixels, pixels.data(), &status);
    fits_close_file(file, &status);
  }
  ~FrameFile() { std::filesystem::remove(path); }

  void Load(Policy policy) {
    manager->SetAllocationPolicy(policy);
    (void)LoadFits(manager, path);
  }

  // The FITS library's own read of the same pixels into plain memory.
  void ReadPlainly() {
    int status = 0;
    int missing = 0;
    fitsfile* file = nullptr;
    fits_open_diskfile(&file, path.string().c_str(), READONLY, &status);
    fits_read_img(file, TUSHORT, 1, kPixels, nullptr, pixels.data(), &missing, &status);
    fits_close_file(file, &status);
  }

  std::filesystem::path path = std::filesystem::temp_directory_path() / "korin_bench_frame.fits";
  std::vector<std::uint16_t> pixels = SkyPixels<std::uint16_t>();
  std::shared_ptr<CVmManager> manager = ManagerOf(1000);
};

}  // namespace

void AddFiles() {
  Contest contest{.operation = "load_fits", .type = "uint16", .serial = true};
  for (const auto& [who, policy] : kPaths) {
    contest.contenders.push_back({who, [policy = policy] { Shared<FrameFile>().Load(policy); }});
  }
  contest.contenders.push_back({"cfitsio", [] { Shared<FrameFile>().ReadPlainly(); }});
  Add(contest);
}

}  // namespace korin::bench

#else

void korin::bench::AddFiles() {}

#endif
