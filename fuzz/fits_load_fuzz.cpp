// FITS files from anybody: each is refused with a reason or gives an image, within
// a small budget of memory and disk, and a loaded image survives being saved.
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "fuzz_input.h"
#include "korinimage/exceptions.h"
#include "korinimage/io/io.h"
#include "scratch_posix.h"
#include "support/memory_config.h"

using korin::fuzz::Require;

// What the sanitizers must know of CFITSIO: see the tests of the file library.
extern "C" [[gnu::visibility("default")]] const char* __asan_default_options();
extern "C" [[gnu::visibility("default")]] const char* __lsan_default_suppressions();
const char* __asan_default_options() { return "allocator_may_return_null=1"; }
const char* __lsan_default_suppressions() { return "leak:libcfitsio"; }

namespace {

// A manager of 1 MiB of memory and 2 of disk.
struct World {
  World() {
    config->WriteInt("VMManager", "MaxDiskSize", 2);
    auto settings = CVmManagerConfiguration::DefaultConfiguration();
    settings->MemoryRatio = 0;
    settings->MinMemorySize = 1;
    settings->BlockSize = 16384;
    manager = CVmManager::Create(std::move(settings));
  }
  korin::test::ScopedMemoryConfig config;
  korin::fuzz::ScratchFolder folder;
  std::shared_ptr<CVmManager> manager;
};

const World& TheWorld() {
  static const World world;
  return world;
}

std::vector<BYTE> Pixels(CImage& image) {
  std::vector<BYTE> bytes;
  CVmImage& store = *image.Store();
  for (std::int64_t block = 0; block < store.GetBlockCount(); ++block) {
    const korin::BlockGuard guard = store.PinBlock(block, korin::BlockIntent::Read);
    Require(static_cast<bool>(guard), "a block that was written comes back");
    const std::int64_t size = store.GetBlockLineCount(block) * store.GetBytesPerLine();
    bytes.insert(bytes.end(), guard.Address(), guard.Address() + size);
  }
  return bytes;
}

void CheckSaved(CImage& image) {
  const auto file = TheWorld().folder.Path() / "saved.fits";
  korin::SaveFits(image, file);
  const auto again = korin::LoadFits(TheWorld().manager, file);
  Require(again->GetBitsPixel() == image.GetBitsPixel() && again->GetWidth() == image.GetWidth() &&
              again->GetHeight() == image.GetHeight() && again->GetPlanes() == image.GetPlanes() &&
              again->IsSigned() == image.IsSigned() && again->GetBscale() == image.GetBscale() &&
              again->GetBzero() == image.GetBzero(),
          "a saved image keeps its shape, type and scaling");
  Require(Pixels(*again) == Pixels(image), "a saved image keeps its pixels");
}

void Load(const std::filesystem::path& file, int hdu) {
  const auto& manager = TheWorld().manager;
  korin::FitsOptions options;
  options.hdu = hdu;
  try {
    const auto image = korin::LoadFits(manager, file, options);
    Require(std::isfinite(image->GetBscale()) && std::isfinite(image->GetBzero()),
            "the scaling is numbers");
    // A copy of the image must find room beside it.
    if (image->GetImageSize() <= 1 << 20) CheckSaved(*image);
  } catch (const korin::FileError& error) {
    Require(std::string(error.what()).find('\n') == std::string::npos, "an error is one line");
  } catch (const korin::CVmMemoryAllocationError&) {
  }
  Require(manager->GetAllocatedBlocks() == 0, "nothing of an image is left");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const korin::fuzz::MemoryFile file({reinterpret_cast<const char*>(data), size});
  Load(file.Path(), korin::FitsOptions::kFirstImage);
  if (size % 4 == 1) Load(file.Path(), static_cast<int>(size / 4 % 3));
  return 0;
}
