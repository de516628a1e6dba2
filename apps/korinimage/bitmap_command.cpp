#include <CLI/Option.hpp>
#include <CLI/TypeTools.hpp>
#include <algorithm>
#include <cstring>
#include <fstream>
#include <memory>
#include <vector>

#include "commands.h"
#include "file_option.h"
#include "korinimage/exceptions.h"
#include "korinimage/global_memory.h"
#include "korinimage/io/file_error.h"

namespace korin::app {

namespace {

constexpr std::int64_t kFileHeader = 14;
constexpr std::int64_t kInfoHeader = 40;
constexpr std::int64_t kMostBytes = std::int64_t{2} << 30;
constexpr std::uint32_t kBitFields = 3;

std::uint32_t Field(const std::vector<BYTE>& bytes, std::int64_t at, int size) {
  std::uint32_t value = 0;
  for (int i = size; i-- > 0;) {
    value = value << 8U | bytes[static_cast<std::size_t>(at + i)];
  }
  return value;
}

std::vector<BYTE> ReadBitmapFile(const std::filesystem::path& file) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(file, error)) throw FileError(file, "is not a file");
  const auto size = static_cast<std::int64_t>(std::filesystem::file_size(file, error));
  if (error || size > kMostBytes) throw FileError(file, "is larger than a bitmap can be");
  std::vector<BYTE> bytes(static_cast<std::size_t>(size));
  std::ifstream in(file, std::ios::binary);
  in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(size));
  if (!in) throw FileError(file, "cannot be read");
  if (size < kFileHeader + kInfoHeader || bytes[0] != 'B' || bytes[1] != 'M') {
    throw FileError(file, "is not a bitmap file");
  }
  return bytes;
}

// A packed bitmap in a global memory block of its own.
class PackedBitmap {
 public:
  // A file may leave a gap before the pixels; a packed bitmap may not.
  PackedBitmap(const std::vector<BYTE>& file, const std::filesystem::path& name) {
    const auto size = static_cast<std::int64_t>(file.size());
    const std::int64_t pixels = Field(file, 10, 4);
    const std::int64_t header = Field(file, kFileHeader, 4);
    const std::uint32_t bits = Field(file, kFileHeader + 14, 2);
    const std::uint32_t compression = Field(file, kFileHeader + 16, 4);
    std::int64_t colours = Field(file, kFileHeader + 32, 4);
    if (colours == 0 && bits <= 8) colours = std::int64_t{1} << bits;
    std::int64_t masks = 0;
    if (header == kInfoHeader && compression == kBitFields) {
      masks = 12;
      if (colours == 3) colours = 0;  // some writers count the masks as colours
    }
    const std::int64_t front = header + masks + 4 * colours;
    if (pixels < kFileHeader + header + masks || pixels > size || front > size - kFileHeader) {
      throw FileError(name, "is a damaged bitmap file");
    }
    m_handle = AllocGlobalMemory(front + size - pixels);
    auto* to = static_cast<BYTE*>(LockGlobalMemory(m_handle));
    if (to == nullptr) throw std::bad_alloc();
    std::memcpy(to, file.data() + kFileHeader, static_cast<std::size_t>(front));
    std::memcpy(to + front, file.data() + pixels, static_cast<std::size_t>(size - pixels));
    UnlockGlobalMemory(m_handle);
  }
  PackedBitmap(const PackedBitmap&) = delete;
  PackedBitmap& operator=(const PackedBitmap&) = delete;
  ~PackedBitmap() { FreeGlobalMemory(m_handle); }

  HDIB Handle() const { return m_handle; }

 private:
  HDIB m_handle = nullptr;
};

// A bitmap's top row comes first, a FITS image's bottom row.
void TurnOver(CImage& image) {
  CVmImage& store = *image.Store();
  const auto bytes = static_cast<std::size_t>(store.GetBytesPerLine());
  std::vector<BYTE> upper(bytes);
  std::vector<BYTE> lower(bytes);
  const auto move = [&](std::int64_t plane, std::int64_t y, std::vector<BYTE>& row, bool write) {
    const CVmImage::LineRun run = store.GetLineRun(plane, y);
    const BlockGuard block =
        store.PinBlock(run.block, write ? BlockIntent::Write : BlockIntent::Read);
    if (!block) throw CVmMemoryAllocationError("a block of the image finds no room in memory");
    BYTE* at = block.Address() + run.firstLine * store.GetBytesPerLine();
    write ? std::memcpy(at, row.data(), bytes) : std::memcpy(row.data(), at, bytes);
  };
  for (std::int64_t plane = 0; plane < image.GetPlanes(); ++plane) {
    for (std::int64_t y = 0; y < image.GetHeight() / 2; ++y) {
      const std::int64_t opposite = image.GetHeight() - 1 - y;
      move(plane, y, lower, false);
      move(plane, opposite, upper, false);
      move(plane, y, upper, true);
      move(plane, opposite, lower, true);
    }
  }
}

}  // namespace

void AddBitmapCommand(CLI::App& app, Session& session) {
  auto file = std::make_shared<std::filesystem::path>();
  auto output = std::make_shared<std::filesystem::path>();
  CLI::App* command =
      app.add_subcommand("from-bmp", "Make an 8-bit frame of a bitmap: grey, or red, green, blue");
  AddFileOption(*command, "file", *file, "BMP file")->type_name("IN.bmp")->required();
  AddFileOption(*command, "output", *output, "FITS file to write")
      ->type_name("OUT.fits")
      ->required();
  command->callback([&session, file, output] {
    const std::vector<BYTE> bytes = ReadBitmapFile(*file);
    const PackedBitmap bitmap(bytes, *file);
    const std::int64_t width = Field(bytes, kFileHeader + 4, 4);
    CImage image;
    if (!image.AttachDIB(session.Manager(std::min<std::int64_t>(width, 1 << 28) * 8),
                         bitmap.Handle(), session.MakeProgress("reading"))) {
      throw FileError(*file, "is a damaged bitmap or one of an unsupported kind");
    }
    TurnOver(image);
    session.Save(image, *output);
  });
}

}  // namespace korin::app
