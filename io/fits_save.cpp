#include <algorithm>
#include <bit>
#include <concepts>
#include <cstring>
#include <string>
#include <vector>

#include "fits_cards.h"
#include "korinimage/io/file_error.h"
#include "korinimage/io/fits_file.h"
#include "korinimage/scoped_progress.h"
#include "output_file.h"
#include "pixel_rows.h"

namespace korin {

namespace {

constexpr std::size_t kRecord = 2880;  // header and data fill whole records

// The offset that stores an unsigned type as a signed one of the same size.
double UnsignedOffset(const CImage& image) {
  if (image.IsSigned()) return 0.0;
  if (image.GetBitsPixel() == CImage::DataTypeInt16) return 32768.0;
  if (image.GetBitsPixel() == CImage::DataTypeInt32) return 2147483648.0;
  return 0.0;
}

std::string HeaderText(const CImage& image) {
  const int planes = image.GetPlanes();
  std::string text = LogicalCard("SIMPLE", true, "conforms to the FITS standard");
  text += IntegerCard("BITPIX", image.GetBitsPixel(), "bits per stored value");
  text += IntegerCard("NAXIS", planes > 1 ? 3 : 2, "number of axes");
  text += IntegerCard("NAXIS1", image.GetWidth(), "pixels per row");
  text += IntegerCard("NAXIS2", image.GetHeight(), "rows");
  if (planes > 1) text += IntegerCard("NAXIS3", planes, "planes");

  const double bscale = image.GetBscale();
  const double bzero = image.GetBzero() + UnsignedOffset(image) * bscale;
  const std::string scaleCard = RealCard("BSCALE", bscale, "physical = stored x BSCALE + BZERO");
  const std::string zeroCard = RealCard("BZERO", bzero, "physical value of a stored 0");
  const bool scaled = bscale != 1.0 || bzero != 0.0;
  const CHeader& header = image.Header();
  // Scaling stays where the header had it; else it follows the structure.
  if (scaled && header.Find(L"BSCALE") < 0) text += scaleCard;
  if (scaled && header.Find(L"BZERO") < 0) text += zeroCard;
  bool scaleWritten = false;
  bool zeroWritten = false;
  for (int i = 0; i < header.GetCount(); ++i) {
    const std::string card = CardToBytes(header.GetAt(i));
    const std::string_view keyword = CardKeyword(card);
    if (keyword == "BSCALE" && !scaleWritten) {
      text += scaleCard;
      scaleWritten = true;
    } else if (keyword == "BZERO" && !zeroWritten) {
      text += zeroCard;
      zeroWritten = true;
    } else if (keyword == "BLANK" && image.GetBitsPixel() < 0) {
      continue;  // a code for missing values exists for integers only
    } else if (!IsWriterCard(keyword) && keyword != "INHERIT") {
      text += card;
    }
  }
  text += CardToBytes(L"END");
  text.resize((text.size() + kRecord - 1) / kRecord * kRecord, ' ');
  return text;
}

// Big-endian copies of native values, the offset of unsigned types applied.
template <typename T>
void ToFile(const BYTE* from, std::int64_t count, std::vector<BYTE>& to) {
  to.resize(static_cast<std::size_t>(count) * sizeof(T));
  for (std::int64_t i = 0; i < count; ++i) {
    BYTE value[sizeof(T)];
    std::memcpy(value, from + i * static_cast<std::int64_t>(sizeof(T)), sizeof(T));
    if constexpr (std::endian::native == std::endian::little)
      std::reverse(value, value + sizeof(T));
    if constexpr (std::unsigned_integral<T> && sizeof(T) > 1) value[0] ^= 0x80;
    std::memcpy(to.data() + i * static_cast<std::int64_t>(sizeof(T)), value, sizeof(T));
  }
}

}  // namespace

void SaveFits(CImage& image, const std::filesystem::path& file,
              const std::shared_ptr<Progress>& progress) {
  RequirePixels(image);
  OutputFile output(file);
  const std::string header = HeaderText(image);
  output.Write(header.data(), header.size());

  const std::int64_t width = image.GetWidth();
  ImageRowsScopedProgress rows(progress, image.GetPlanes(), image.GetHeight());
  const std::int64_t step = RowsPerStep(width * image.GetBytesPixel());
  std::vector<BYTE> buffer;
  WithPixelType(image.GetBitsPixel(), image.IsSigned(), [&](auto kind) {
    for (int plane = 0; plane < image.GetPlanes(); ++plane) {
      ForRowRuns(image, plane, 0, image.GetHeight(), step, BlockIntent::Read,
                 [&](const BYTE* pixels, std::int64_t y, std::int64_t count) {
                   rows.Row(plane, y);
                   ToFile<decltype(kind)>(pixels, count * width, buffer);
                   output.Write(buffer.data(), buffer.size());
                 });
    }
  });
  const auto tail = static_cast<std::size_t>(image.GetImageSize()) % kRecord;
  if (tail != 0) {
    buffer.assign(kRecord - tail, 0);
    output.Write(buffer.data(), buffer.size());
  }
  output.Commit();
}

}  // namespace korin
