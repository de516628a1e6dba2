// What a reader makes of the two mappings that describe an image: any bytes either
// are refused or give an image and a header that keep their promises, and that
// arrive the same when they are sent on.
#include <cstring>
#include <vector>

#include "exchange/header_record.h"
#include "exchange/image_record.h"
#include "exchange/pixel_exchange.h"
#include "fuzz_input.h"

namespace {

using korin::fuzz::Require;
namespace exchange = korin::exchange;
namespace wire = korin::exchange::wire;

// The mapping as far as the input reaches, zeros behind; a few inputs name offsets
// to change instead, which finds the far fields sooner.
std::vector<std::byte> MappingOf(korin::fuzz::Input& input, std::size_t size) {
  std::vector<std::byte> bytes(size);
  const auto pieces = input.Take<std::uint8_t>() % 32;
  for (int piece = 0; piece < pieces && !input.Empty(); ++piece) {
    const std::size_t offset = input.Take<std::uint16_t>() % (size - 8);
    const auto value = input.Take<std::uint64_t>();
    std::memcpy(bytes.data() + offset, &value, sizeof value);
  }
  for (std::size_t i = 0; i < size && !input.Empty(); ++i) bytes[i] |= input.Take<std::byte>();
  return bytes;
}

void CheckImage(const std::vector<std::byte>& bytes, bool withPixels) {
  const auto record = exchange::ParseImage(bytes, withPixels);
  if (!record) return;
  CImage image;
  exchange::ApplyRecord(*record, image);
  const auto planes = static_cast<std::size_t>(image.GetPlanes());
  Require(planes <= wire::kMaxPlanes && image.GetLevelMin().size() == planes &&
              image.GetLevelMax().size() == planes && image.GetLevelRange().size() == planes,
          "levels for every plane");
  Require(image.GetWidth() >= 0 && image.GetHeight() >= 0, "sizes");
  Require(!withPixels || exchange::NeedsFile(image) || exchange::PixelBytes(image).has_value(),
          "pixels that can be counted");
  std::vector<std::byte> sent(wire::image::kBytes);
  exchange::EncodeImage(exchange::RecordOf(image).value(), sent);
  std::vector<std::byte> again = sent;
  CImage received;
  exchange::ApplyRecord(exchange::ParseImage(sent, withPixels).value(), received);
  exchange::EncodeImage(exchange::RecordOf(received).value(), again);
  Require(sent == again, "an image sent on arrives the same");
}

void CheckHeader(const std::vector<std::byte>& bytes) {
  CHeader header;
  exchange::ApplyRecord(exchange::ParseHeader(bytes), header);
  Require(header.GetCount() <= static_cast<int>(wire::header::kCardSlots), "number of cards");
  std::vector<std::byte> sent(wire::header::kBytes);
  exchange::EncodeHeader(exchange::RecordOf(header), sent);
  CHeader received;
  exchange::ApplyRecord(exchange::ParseHeader(sent), received);
  Require(received.GetCount() == header.GetCount(), "cards sent on arrive");
  for (int i = 0; i < header.GetCount(); ++i) {
    Require(received.GetAt(i) == header.GetAt(i), "a card sent on arrives the same");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  korin::fuzz::Input input(data, size);
  const auto choice = input.Take<std::uint8_t>();
  if (choice % 4 == 3) {
    CheckHeader(MappingOf(input, wire::header::kBytes));
  } else {
    CheckImage(MappingOf(input, wire::image::kBytes), choice % 2 == 0);
  }
  return 0;
}
