#include "korinimage/shared_mem.h"

#include <array>
#include <filesystem>
#include <system_error>

#include "exchange/header_record.h"
#include "exchange/image_record.h"
#include "exchange/pixel_exchange.h"
#include "exchange/wire_layout.h"
#include "platform/exchange_file.h"
#include "platform/exchange_names.h"
#include "platform/shared_mapping.h"

namespace {

namespace exchange = korin::exchange;
namespace platform = korin::platform;
namespace wire = korin::exchange::wire;

// One exchange per process. Its end at exit closes what the application left open.
struct Exchange {
  platform::SharedMapping image;
  platform::SharedMapping header;
  platform::SharedMapping pixels;
  std::filesystem::path file;  // empty: none yet, or no temporary folder
  // Kept open after it was written, so that no sweep takes it before its reader.
  platform::ExchangeFile written;
};

Exchange& TheExchange() {
  static Exchange theExchange;
  return theExchange;
}

// Failures of every kind are the answer 0.
template <typename Body>
int Answer(Body&& body) {
  try {
    return body() ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

// The system's temporary folder may be changed at any time through the
// environment; an exchange keeps the one that it began with.
std::filesystem::path FilePath() {
  std::error_code error;
  const auto folder = std::filesystem::temp_directory_path(error);
  return error ? std::filesystem::path() : folder / platform::kExchangeFileName;
}

template <std::size_t Bytes>
using Snapshot = std::array<std::byte, Bytes>;

// Changes a mapping through a copy: `encode` sets what it has a value for, all else
// is written back as it was.
template <std::size_t Bytes, typename Record, typename Encode>
bool WriteRecord(const platform::SharedMapping& mapping, const Record& record, Encode encode) {
  Snapshot<Bytes> bytes;
  if (!mapping.ReadAt(0, bytes.data(), Bytes)) return false;
  encode(record, std::span<std::byte>(bytes));
  return mapping.WriteAt(0, bytes.data(), Bytes);
}

bool WriteFile(const CImage& image) {
  Exchange& current = TheExchange();
  const auto bytes = exchange::PixelBytes(image);
  if (current.file.empty() || !bytes || !current.written.Create(current.file, *bytes)) return false;
  bool written = false;
  try {
    written = exchange::SavePixels(image, current.written) && current.written.Finish();
  } catch (...) {  // a block that cannot be brought in
  }
  if (!written) {
    current.written.Remove();
    current.written.Close();
  }
  return written;
}

bool ReadFile(const std::shared_ptr<CVmManager>& manager, CImage& image) {
  const Exchange& current = TheExchange();
  platform::ExchangeFile file;
  if (!manager || current.file.empty() || !file.Open(current.file)) return false;
  // The size is compared first: attributes may claim any size, and the manager
  // would fill the disk for it.
  const auto bytes = exchange::PixelBytes(image);
  if (!bytes || file.Size() < *bytes) return false;
  if (!image.AllocImage(manager, CImage::ProgressPtr())) return false;
  if (!exchange::LoadPixels(image, file)) return false;
  file.Remove();
  return true;
}

}  // namespace

CSharedMem::CSharedMem() = default;
CSharedMem::~CSharedMem() = default;

int CSharedMem::CreateFileMappings(int withPixels) {
  return Answer([&] {
    Exchange& current = TheExchange();
    if (!current.image.Open(platform::kImageMappingName, wire::image::kBytes)) return false;
    if (!current.header.Open(platform::kHeaderMappingName, wire::header::kBytes)) return false;
    if (withPixels != 0) {
      if (!current.pixels.Open(platform::kPixelMappingName, wire::pixels::kBytes)) {
        current.header.Close();
        current.image.Close();
        return false;
      }
    } else if (!current.pixels.IsOpen()) {
      // Asking clears away the large object of a process that was killed.
      static_cast<void>(platform::IsSharedMappingHeld(platform::kPixelMappingName));
    }
    if (current.file.empty()) current.file = FilePath();
    return true;
  });
}

void CSharedMem::CloseMappingHandles() {
  Exchange& current = TheExchange();
  current.image.Close();
  current.header.Close();
  current.pixels.Close();
  current.file.clear();
  current.written.Close();
}

int CSharedMem::WriteSharedMemory(const CImage* image, int withPixels) {
  return Answer([&] {
    if (image == nullptr) return false;
    const Exchange& current = TheExchange();
    const auto record = exchange::RecordOf(*image);
    if (!record ||
        !WriteRecord<wire::image::kBytes>(current.image, *record, exchange::EncodeImage)) {
      return false;
    }
    if (!WriteRecord<wire::header::kBytes>(current.header, exchange::RecordOf(image->Header()),
                                           exchange::EncodeHeader)) {
      return false;
    }
    if (withPixels == 0) return true;
    if (exchange::NeedsFile(*image)) return WriteFile(*image);
    return current.pixels.IsOpen() && exchange::SendPixels(*image, current.pixels);
  });
}

int CSharedMem::ReadSharedMemory(const std::shared_ptr<CVmManager>& manager, CImage* image,
                                 int withPixels) {
  return Answer([&] {
    if (image == nullptr) return false;
    const Exchange& current = TheExchange();
    // Everything is judged and used in a copy that no partner can change.
    Snapshot<wire::image::kBytes> imageBytes;
    if (!current.image.ReadAt(0, imageBytes.data(), imageBytes.size())) return false;
    const auto record = exchange::ParseImage(imageBytes, withPixels != 0);
    if (!record) return false;
    exchange::ApplyRecord(*record, *image);

    Snapshot<wire::header::kBytes> headerBytes;
    if (!current.header.ReadAt(0, headerBytes.data(), headerBytes.size())) return false;
    exchange::ApplyRecord(exchange::ParseHeader(headerBytes), image->Header());

    if (withPixels == 0) return true;
    if (exchange::NeedsFile(*image)) return ReadFile(manager, *image);
    return current.pixels.IsOpen() && manager &&
           image->AllocImage(manager, CImage::ProgressPtr()) &&
           exchange::ReceivePixels(*image, current.pixels);
  });
}

int CSharedMem::WriteSharedFile(const CImage* image) {
  return Answer([&] { return image != nullptr && WriteFile(*image); });
}

int CSharedMem::ReadSharedFile(const std::shared_ptr<CVmManager>& manager, CImage* image) {
  return Answer([&] { return image != nullptr && ReadFile(manager, *image); });
}

namespace korin {

bool IsExchangeOpen() noexcept {
  return platform::IsSharedMappingHeld(platform::kImageMappingName);
}

}  // namespace korin
