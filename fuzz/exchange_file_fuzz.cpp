// An image that comes through the exchange file: attributes and a file of any
// length and contents, which need not fit each other.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

#include "exchange/image_record.h"
#include "exchange/pixel_exchange.h"
#include "fuzz_input.h"
#include "korinimage/shared_mem.h"
#include "platform/exchange_names.h"
#include "scratch_posix.h"
#include "support/memory_config.h"
#include "vm/manager_impl.h"

using korin::fuzz::Input;
using korin::fuzz::Require;
namespace exchange = korin::exchange;
namespace wire = korin::exchange::wire;
namespace fs = std::filesystem;

namespace {

// An exchange in a temporary folder of this process's own.
struct Place {
  Place() {
    Require(CSharedMem::CreateFileMappings(0) == 1, "the exchange opens");
    auto configuration = CVmManagerConfiguration::DefaultConfiguration();
    configuration->BlockSize = 4096;
    korin::vm::ManagerSeams seams;
    seams.budgetBytes = 4 * 4096;
    seams.diskLimitBlocks = 64;
    manager = std::make_shared<CVmManagerImpl>(std::move(configuration), std::move(seams));
  }
  ~Place() {
    CSharedMem::CloseMappingHandles();
    manager.reset();
  }
  fs::path File() const { return folder.Path() / korin::platform::kExchangeFileName; }

  korin::test::ScopedMemoryConfig settings;
  korin::fuzz::ScratchFolder folder;
  std::shared_ptr<CVmManager> manager;
};

void Put(const fs::path& file, const std::vector<char>& bytes) {
  std::ofstream(file, std::ios::binary).write(bytes.data(), std::ssize(bytes));
  fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);
}

std::vector<char> Bytes(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Attributes that are mostly possible, and now and then anything.
std::vector<std::byte> TakeMapping(Input& input) {
  std::vector<std::byte> bytes(wire::image::kBytes);
  const auto put = [&](std::size_t offset, auto value) {
    std::memcpy(bytes.data() + offset, &value, sizeof value);
  };
  static constexpr std::int32_t kTypes[] = {8, 16, 32, -32, -64, 64, 0, 7};
  const bool any = input.Take<std::uint8_t>() >= 192;
  const auto take = [&] {
    return any ? input.Take<std::int32_t>() : input.Take<std::uint8_t>() % 64;
  };
  put(wire::image::kBitsPixel, any ? take() : kTypes[input.Take<std::uint8_t>() % 8]);
  put(wire::image::kSigned, take() % 2);
  put(wire::image::kWidth, take());
  put(wire::image::kHeight, take());
  put(wire::image::kPlanes, any ? take() : take() % 5);
  put(wire::image::kBscale, 1.0);
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Place place;
  Input input(data, size);
  const auto record = exchange::ParseImage(TakeMapping(input), true);
  if (!record) return 0;
  CImage image;
  exchange::ApplyRecord(*record, image);

  const std::int64_t bytes = exchange::PixelBytes(image).value_or(0);
  // As many bytes as the pixels take, fewer, more, or what is left of the input.
  const auto length = input.Take<std::uint8_t>();
  std::vector<char> contents;
  if (bytes > 0 && bytes < 1 << 18) {
    contents.resize(static_cast<std::size_t>(std::max<std::int64_t>(bytes + length % 3 - 1, 0)));
  }
  if (length >= 240) contents.resize(length - 240U);
  for (char& c : contents) {
    if (input.Empty()) break;
    c = input.Take<char>();
  }
  Put(place.File(), contents);

  const bool fits = bytes > 0 && std::ssize(contents) >= bytes;
  const bool loaded = CSharedMem::ReadSharedFile(place.manager, &image) == 1;
  Require(fits || !loaded, "a file that is too short is refused");
  Require(loaded || fs::exists(place.File()), "a refused file stays");
  if (loaded) {
    Require(!fs::exists(place.File()), "a file that was read is gone");
    Require(CSharedMem::WriteSharedFile(&image) == 1, "what came in goes out");
    contents.resize(static_cast<std::size_t>(bytes));
    Require(Bytes(place.File()) == contents, "the pixels are those of the file");
  }
  fs::remove(place.File());
  image.Empty();
  Require(place.manager->GetAllocatedBlocks() == 0, "nothing of an image is left");
  return 0;
}
