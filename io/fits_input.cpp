#include "fits_input.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <system_error>

#include "fits_cards.h"
#include "fits_tiles.h"
#include "korinimage/io/file_error.h"
#include "platform/checked_math.h"
#include "platform/text.h"
#include "tile_header.h"

namespace korin {

namespace {

namespace fs = std::filesystem;

constexpr const char* kRemedyDamaged = "the file is truncated or its header is damaged";

// What a file that is not plain FITS turns out to be.
std::string ForeignKind(std::string_view start) {
  if (start.substr(0, 2) == "\x1f\x8b") return "is compressed as a whole with gzip";
  if (start.substr(0, 2) == "\x1f\x9d") return "is compressed as a whole with compress";
  if (start.substr(0, 3) == "BZh") return "is compressed as a whole with bzip2";
  if (start.substr(0, 2) == "PK") return "is a ZIP archive";
  return {};
}

// Values of the file's byte order and offset as the machine's own: in one pass, in
// steps of a fixed length, which compilers turn into vector code. `flip` is applied
// with exclusive or.
template <bool kSwap, typename Unsigned>
void ToMachine(Unsigned* values, std::int64_t count, Unsigned flip) {
  const auto convert = [flip](Unsigned value) {
    if constexpr (kSwap && sizeof(Unsigned) == 2) {
      value = static_cast<Unsigned>((value << 8) | (value >> 8));
    } else if constexpr (kSwap && sizeof(Unsigned) == 4) {
      value = (value << 24) | ((value & 0xff00u) << 8) | ((value >> 8) & 0xff00u) | (value >> 24);
    } else if constexpr (kSwap && sizeof(Unsigned) == 8) {
      value = ((value & 0x00ff00ff00ff00ffu) << 8) | ((value >> 8) & 0x00ff00ff00ff00ffu);
      value = ((value & 0x0000ffff0000ffffu) << 16) | ((value >> 16) & 0x0000ffff0000ffffu);
      value = (value << 32) | (value >> 32);
    }
    return static_cast<Unsigned>(value ^ flip);
  };
  constexpr std::int64_t kStep = 64;
  std::int64_t i = 0;
  for (; i + kStep <= count; i += kStep) {
    Unsigned* step = values + i;
    for (std::int64_t k = 0; k < kStep; ++k) step[k] = convert(step[k]);
  }
  for (; i < count; ++i) values[i] = convert(values[i]);
}

template <bool kSwap, typename Unsigned>
void ToMachine(void* pixels, std::int64_t count, bool isUnsigned) {
  constexpr auto kSign =
      static_cast<Unsigned>(Unsigned{1} << (std::numeric_limits<Unsigned>::digits - 1));
  if (!kSwap && !isUnsigned) return;
  ToMachine<kSwap>(static_cast<Unsigned*>(pixels), count, isUnsigned ? kSign : Unsigned{0});
}

}  // namespace

void FitsInput::Closer::operator()(fitsfile* file) const noexcept {
  int status = 0;
  fits_close_file(file, &status);
  fits_clear_errmsg();
}

FitsInput::FitsInput(const fs::path& file, const FitsOptions& options) : m_name(file) {
  Open(file);
  FindImage(options.hdu);
  ReadShape();
  ReadScaling();
  ReadCards();
}

void FitsInput::Check(int status, const std::string& doing) const {
  if (status == 0) return;
  // The oldest message on the library's stack is the most precise one.
  std::array<char, FLEN_ERRMSG> line{};
  fits_get_errstatus(status, line.data());
  std::string text = line.data();
  if (fits_read_errmsg(line.data()) != 0) text.append(": ").append(line.data());
  fits_clear_errmsg();
  // Texts quote the file's own bytes.
  for (char& c : text) {
    if (c < 0x20 || c == 0x7F) c = '?';
  }
  const bool systemRefused = status == MEMORY_ALLOCATION || status == FILE_NOT_OPENED;
  throw FileError(m_name, doing + ": " + text, systemRefused ? "" : kRemedyDamaged);
}

void FitsInput::Open(const fs::path& file) {
  std::error_code error;
  const fs::file_status status = fs::status(file, error);
  if (!fs::exists(status)) throw FileError(file, "does not exist");
  if (!fs::is_regular_file(status)) throw FileError(file, "is not a regular file");
  m_fileSize = static_cast<std::int64_t>(fs::file_size(file, error));
  std::ifstream probe(file, std::ios::binary);
  if (error || !probe) throw FileError(file, "cannot be opened for reading");

  std::array<char, 16> bytes{};
  probe.read(bytes.data(), bytes.size());
  const std::string_view start(bytes.data(), static_cast<std::size_t>(probe.gcount()));
  if (const std::string kind = ForeignKind(start); !kind.empty()) {
    // Such files would be unpacked in memory at their full size.
    throw FileError(file, kind, "unpack it first; FITS tile compression is read directly");
  }
  if (start.substr(0, 6) != "SIMPLE") {
    throw FileError(file, "is not a FITS file: it does not begin with SIMPLE");
  }

  // An absolute name has no leading blanks, which the library would drop.
  const std::string name = platform::NarrowName(fs::absolute(file));
  if (name.empty()) {
    throw FileError(file, "has a name that the FITS library cannot take here",
                    "give it a name in characters of the system's code page");
  }
  if (name.size() >= FLEN_FILENAME) {
    throw FileError(file,
                    "has a name of " + std::to_string(name.size()) + " bytes, and at most " +
                        std::to_string(FLEN_FILENAME - 1) + " can be read",
                    "move it to a shorter path");
  }
  fitsfile* opened = nullptr;
  int code = 0;
  fits_clear_errmsg();
  fits_open_diskfile(&opened, name.c_str(), READONLY, &code);
  m_file.reset(opened);
  Check(code, "cannot be read as FITS");
}

bool FitsInput::IsImageHere() {
  int status = 0;
  int kind = ANY_HDU;
  fits_get_hdu_type(m_file.get(), &kind, &status);
  m_description.tileCompressed = fits_is_compressed_image(m_file.get(), &status) != 0;
  Check(status, "cannot tell what the unit holds");
  if (kind != IMAGE_HDU && !m_description.tileCompressed) return false;
  int axes = 0;
  fits_get_img_dim(m_file.get(), &axes, &status);
  Check(status, "cannot read NAXIS");
  m_axes.assign(static_cast<std::size_t>(std::max(axes, 0)), 0);
  if (axes <= 0) return false;
  fits_get_img_sizell(m_file.get(), axes, m_axes.data(), &status);
  Check(status, "cannot read the lengths of the axes");
  // Random groups declare a first axis of 0.
  return std::find(m_axes.begin(), m_axes.end(), 0) == m_axes.end();
}

// Goes to a unit by its neighbours, each looked at before the library reads it.
// False when the file ends before it.
bool FitsInput::GoTo(int unit) {
  int status = 0;
  int current = 0;
  fits_get_hdu_num(m_file.get(), &current);  // counted from 1
  while (current < unit + 1) {
    LONGLONG end = 0;
    fits_get_hduaddrll(m_file.get(), nullptr, nullptr, &end, &status);
    if (status == 0 && end < m_fileSize) CheckTileHeader(m_name, end);
    fits_movrel_hdu(m_file.get(), 1, nullptr, &status);
    if (status == END_OF_FILE || status == BAD_HDU_NUM) {
      fits_clear_errmsg();
      return false;
    }
    Check(status, "cannot read unit " + std::to_string(current));
    ++current;
  }
  return true;
}

void FitsInput::FindImage(int hdu) {
  if (hdu != FitsOptions::kFirstImage) {
    if (hdu < 0 || !GoTo(hdu)) {
      throw FileError(m_name, "has no unit " + std::to_string(hdu));
    }
    if (!IsImageHere()) throw FileError(m_name, "holds no image in unit " + std::to_string(hdu));
    m_description.hdu = hdu;
    return;
  }
  for (int unit = 0; GoTo(unit); ++unit) {
    if (IsImageHere()) {
      m_description.hdu = unit;
      return;
    }
  }
  throw FileError(m_name, "holds no image");
}

void FitsInput::ReadShape() {
  int status = 0;
  int bitpix = 0;
  fits_get_img_type(m_file.get(), &bitpix, &status);
  Check(status, "cannot read BITPIX");
  switch (bitpix) {
    case BYTE_IMG:
    case SHORT_IMG:
    case LONG_IMG:
    case FLOAT_IMG:
    case DOUBLE_IMG:
      m_description.type = static_cast<CImage::DataType>(bitpix);
      break;
    default:
      throw FileError(m_name, "has pixels of BITPIX " + std::to_string(bitpix),
                      "8, 16, 32, -32 and -64 can be read");
  }

  std::string shape;
  for (const LONGLONG axis : m_axes) {
    shape += (shape.empty() ? "" : " x ") + std::to_string(axis);
  }
  std::vector<LONGLONG> axes(m_axes.begin(), m_axes.end());
  // Axes of length 1 behind the first two carry no pixels.
  for (std::size_t i = axes.size(); i-- > 2;) {
    if (axes[i] == 1) axes.erase(axes.begin() + static_cast<std::ptrdiff_t>(i));
  }
  if (axes.size() < 2 || axes.size() > 3) {
    throw FileError(m_name, "has an image of " + shape + " pixels",
                    "images of two axes, with planes as a third, can be read");
  }
  axes.resize(3, 1);
  constexpr LONGLONG kLimit = std::numeric_limits<int>::max();
  if (*std::min_element(axes.begin(), axes.end()) < 1 ||
      *std::max_element(axes.begin(), axes.end()) > kLimit) {
    throw FileError(m_name, "declares an image of " + shape + " pixels",
                    "an axis may have 1 to " + std::to_string(kLimit) + " pixels");
  }
  m_description.width = axes[0];
  m_description.height = axes[1];
  m_description.planes = axes[2];

  LONGLONG dataStart = 0;
  fits_get_hduaddrll(m_file.get(), nullptr, &dataStart, nullptr, &status);
  Check(status, "cannot locate the pixels");
  m_dataStart = dataStart;
  const std::int64_t present = std::max<std::int64_t>(0, m_fileSize - dataStart);
  const auto bytes = CheckedMul(axes[0], axes[1], axes[2], std::int64_t{std::abs(bitpix) / 8});
  if (!bytes || (!m_description.tileCompressed && *bytes > present)) {
    throw FileError(m_name,
                    "declares an image of " + shape + " pixels, " +
                        (bytes ? std::to_string(*bytes) : std::string("more than 2^63")) +
                        " bytes, but only " + std::to_string(present) + " follow the header",
                    kRemedyDamaged);
  }
  if (m_description.tileCompressed) {
    m_quantized = CheckTileTable(m_file.get(), m_name, m_fileSize, m_description, m_axes);
  }
}

double FitsInput::ReadNumber(const char* keyword, double fallback) {
  int status = 0;
  double value = fallback;
  fits_read_key(m_file.get(), TDOUBLE, keyword, &value, nullptr, &status);
  if (status == KEY_NO_EXIST || status == VALUE_UNDEFINED) {
    fits_clear_errmsg();
    return fallback;
  }
  Check(status, std::string("cannot read ") + keyword);
  if (!std::isfinite(value)) {
    throw FileError(m_name, std::string(keyword) + " is not a finite number", kRemedyDamaged);
  }
  return value;
}

void FitsInput::ReadScaling() {
  const double bscale = ReadNumber("BSCALE", 1.0);
  const double bzero = ReadNumber("BZERO", 0.0);
  const bool isUnsigned =
      bscale == 1.0 && ((m_description.type == CImage::DataTypeInt16 && bzero == 32768.0) ||
                        (m_description.type == CImage::DataTypeInt32 && bzero == 2147483648.0));
  m_description.bscale = bscale;
  m_description.bzero = isUnsigned ? 0.0 : bzero;
  m_description.isSigned = m_description.type != CImage::DataTypeInt8 && !isUnsigned;
}

void FitsInput::ReadCards() {
  int status = 0;
  int count = 0;
  fits_get_hdrspace(m_file.get(), &count, nullptr, &status);
  Check(status, "cannot read the header");
  std::vector<std::string> cards;
  for (int i = 1; i <= count; ++i) {
    std::array<char, FLEN_CARD> card{};
    fits_read_record(m_file.get(), i, card.data(), &status);
    Check(status, "cannot read card " + std::to_string(i));
    cards.emplace_back(card.data());
  }
  if (m_description.tileCompressed) cards = ImageCardsOfTable(cards);
  for (const std::string& card : cards) m_description.header.Add(CardToWide(card).c_str());
}

void FitsInput::CheckTiles() {
  if (m_description.tileCompressed) {
    m_spare.reserve(static_cast<std::size_t>(
        CheckTileStreams(m_file.get(), m_name, m_fileSize, m_description, m_axes)));
  }
}

void FitsInput::ReadPixels(std::int64_t first, std::int64_t count, void* into) {
  if (!m_description.tileCompressed) return ReadPlain(first, count, into);
  ReadTiles(first, count, into);
  Finish<false>(count, into);
}

// Byte order and the offset of unsigned values.
template <bool kSwap>
void FitsInput::Finish(std::int64_t count, void* pixels) const {
  const bool isUnsigned = !m_description.isSigned;
  switch (std::abs(m_description.type)) {
    case 16:
      return ToMachine<kSwap, std::uint16_t>(pixels, count, isUnsigned);
    case 32:
      return ToMachine<kSwap, std::uint32_t>(pixels, count, isUnsigned);
    case 64:
      return ToMachine<kSwap, std::uint64_t>(pixels, count, false);
    default:
      return;
  }
}

// Straight from the file: FITS keeps plain pixels as big-endian values in order.
// CFITSIO reads whole records and so refuses the many files whose last one is not
// filled up.
void FitsInput::ReadPlain(std::int64_t first, std::int64_t count, void* into) {
  const std::int64_t size = std::abs(m_description.type) / 8;
  if (!m_plain.is_open()) m_plain.open(m_name, std::ios::binary);
  m_plain.seekg(m_dataStart + first * size);
  // Pieces that are still in the processor's cache when their bytes are put in order.
  constexpr std::int64_t kPiece = 1 << 17;
  auto* bytes = static_cast<char*>(into);
  for (std::int64_t left = count * size; left > 0;) {
    const std::int64_t now = std::min(left, kPiece);
    m_plain.read(bytes, static_cast<std::streamsize>(now));
    if (!m_plain) {
      throw FileError(m_name, "cannot be read at pixel " + std::to_string(first), kRemedyDamaged);
    }
    Finish<std::endian::native == std::endian::little>(now / size, bytes);
    bytes += now;
    left -= now;
  }
}

void FitsInput::ReadTiles(std::int64_t first, std::int64_t count, void* into) {
  int type = TBYTE;
  switch (m_description.type) {
    case CImage::DataTypeInt16:
      type = TSHORT;
      break;
    case CImage::DataTypeInt32:
      type = TINT;
      break;
    case CImage::DataTypeFloat:
      type = TFLOAT;
      break;
    case CImage::DataTypeDouble:
      type = TDOUBLE;
      break;
    default:
      break;
  }
  // Scaled-integer tiles mark missing values by a code; only when a substitute is
  // named do these become NaN again. Otherwise values must pass untouched.
  float missingFloat = std::numeric_limits<float>::quiet_NaN();
  double missingDouble = std::numeric_limits<double>::quiet_NaN();
  void* missing = nullptr;
  if (m_quantized && type == TFLOAT) missing = &missingFloat;
  if (m_quantized && type == TDOUBLE) missing = &missingDouble;
  int status = 0;
  std::vector<char>().swap(m_spare);                 // CFITSIO's turn
  fits_set_bscale(m_file.get(), 1.0, 0.0, &status);  // stored values, not physical ones
  fits_read_img(m_file.get(), type, first + 1, count, missing, into, nullptr, &status);
  Check(status,
        "cannot read pixels " + std::to_string(first) + " to " + std::to_string(first + count - 1));
}

}  // namespace korin
