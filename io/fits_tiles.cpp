#include "fits_tiles.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <string>

#include "korinimage/io/file_error.h"
#include "platform/checked_math.h"
#include "tile_streams.h"

namespace korin {

namespace {

// One row of tiles is decoded into memory at a time.
constexpr std::int64_t kTileRowLimit = std::int64_t{512} << 20;
// Pixels of one H-transform tile, which is decoded in 64-bit integers.
constexpr std::int64_t kHcompressLimit = std::int64_t{16} << 20;
// A compressed image this much larger than its data is a trap, not a picture.
constexpr std::int64_t kExpansionLimit = 20000;
constexpr std::int64_t kExpansionFloor = std::int64_t{64} << 20;

// Of the memory that the decoder's tables take.
constexpr std::int64_t kMostSpare = std::int64_t{64} << 20;

constexpr const char* kDamaged = "the file is truncated or damaged";

enum class Method { kRice, kGzip, kPlio, kHcompress };

struct TileTable {
  Method method = Method::kRice;
  std::vector<std::int64_t> axes;
  std::vector<std::int64_t> tile;
  std::int64_t tiles = 1;
  std::int64_t group = 32;      // pixels coded together (Rice)
  std::int64_t bytesPixel = 4;  // of the coded integers (Rice)
  std::int64_t smooth = 0;      // H-transform
  bool unquantized = false;     // floating-point pixels packed as they are
  bool scaled = false;          // floating-point pixels stored as scaled integers
};

class TableReader {
 public:
  TableReader(fitsfile* file, const std::filesystem::path& name) : m_file(file), m_name(name) {}

  [[noreturn]] void Fail(const std::string& problem, const char* remedy = kDamaged) const {
    fits_clear_errmsg();
    throw FileError(m_name, problem, remedy);
  }

  std::int64_t Integer(const std::string& keyword, std::int64_t fallback) const {
    int status = 0;
    LONGLONG value = fallback;
    fits_read_key(m_file, TLONGLONG, keyword.c_str(), &value, nullptr, &status);
    if (status == KEY_NO_EXIST) {
      fits_clear_errmsg();
      return fallback;
    }
    if (status != 0) Fail("cannot read " + keyword);
    return value;
  }

  // Empty when absent.
  std::string Text(const std::string& keyword) const {
    int status = 0;
    std::array<char, FLEN_VALUE> value{};
    fits_read_key(m_file, TSTRING, keyword.c_str(), value.data(), nullptr, &status);
    // What cannot be read now may be there when the tiles are decoded.
    if (status == READ_ERROR || status == SEEK_ERROR || status == MEMORY_ALLOCATION) {
      Fail("cannot read " + keyword);
    }
    fits_clear_errmsg();
    return status == 0 ? std::string(value.data()) : std::string();
  }

  // 0 when absent.
  int Column(const char* title) const {
    int status = 0;
    int column = 0;
    std::string copy = title;  // the interface is not const
    fits_get_colnum(m_file, CASEINSEN, copy.data(), &column, &status);
    fits_clear_errmsg();
    return status == 0 ? column : 0;
  }

  // Type code of the elements of a variable-length column; 0 for any other.
  int ElementType(int column) const {
    int status = 0;
    int code = 0;
    fits_get_coltype(m_file, column, &code, nullptr, nullptr, &status);
    fits_clear_errmsg();
    return status == 0 && code < 0 ? -code : 0;
  }

  fitsfile* File() const { return m_file; }

 private:
  fitsfile* m_file;
  const std::filesystem::path& m_name;
};

TileTable ReadTable(const TableReader& reader, const FitsDescription& image,
                    const std::vector<LONGLONG>& axes) {
  TileTable table;
  table.axes.assign(axes.begin(), axes.end());
  for (std::size_t i = 0; i < axes.size(); ++i) {
    const std::string keyword = "ZTILE" + std::to_string(i + 1);
    const std::int64_t length = reader.Integer(keyword, i == 0 ? axes[0] : 1);
    if (length < 1 || length > 0x7FFFFFFF) {
      reader.Fail(keyword + " is " + std::to_string(length));
    }
    table.tile.push_back(std::min<std::int64_t>(length, axes[i]));
    table.tiles *= CeilDiv(axes[i], table.tile[i]);  // at most the checked pixel count
  }

  const std::string method = reader.Text("ZCMPTYPE");
  if (method.rfind("RICE_1", 0) == 0 || method.rfind("RICE_ONE", 0) == 0) {
    table.method = Method::kRice;
  } else if (method.rfind("GZIP_", 0) == 0) {
    table.method = Method::kGzip;
  } else if (method.rfind("PLIO_1", 0) == 0) {
    table.method = Method::kPlio;
  } else if (method.rfind("HCOMPRESS_1", 0) == 0) {
    table.method = Method::kHcompress;
  } else {
    reader.Fail("is compressed by the method '" + method + "', which cannot be read",
                "RICE_1, GZIP_1, GZIP_2, PLIO_1 and HCOMPRESS_1 can be read");
  }
  for (int i = 1; i < 10; ++i) {
    const std::string index = std::to_string(i);
    const std::string setting = reader.Text("ZNAME" + index);
    if (setting.empty()) break;
    if (setting == "BLOCKSIZE") table.group = reader.Integer("ZVAL" + index, 32);
    if (setting == "BYTEPIX") table.bytesPixel = reader.Integer("ZVAL" + index, 4);
    if (setting == "SMOOTH") table.smooth = reader.Integer("ZVAL" + index, 0);
  }
  if (table.method == Method::kRice &&
      (table.group < 1 || table.group > 65536 ||
       (table.bytesPixel != 1 && table.bytesPixel != 2 && table.bytesPixel != 4))) {
    reader.Fail("has impossible settings of Rice compression");
  }
  table.scaled = image.type < 0 && (reader.Column("ZSCALE") > 0 || !reader.Text("ZSCALE").empty());
  const std::string quantize = reader.Text("ZQUANTIZ");
  table.unquantized = quantize.rfind("NONE", 0) == 0;
  if (table.unquantized && (image.type > 0 || table.method != Method::kGzip)) {
    reader.Fail("combines ZQUANTIZ = 'NONE' with pixels or a method that it does not fit");
  }
  return table;
}

// The number of pixels and the extents of tile `index`, cut at the image's edges.
std::vector<std::int64_t> TileShape(const TileTable& table, std::int64_t index) {
  std::vector<std::int64_t> shape;
  for (std::size_t i = 0; i < table.axes.size(); ++i) {
    const std::int64_t across = CeilDiv(table.axes[i], table.tile[i]);
    const std::int64_t start = index % across * table.tile[i];
    shape.push_back(std::min(table.tile[i], table.axes[i] - start));
    index /= across;
  }
  return shape;
}

std::int64_t Product(const std::vector<std::int64_t>& shape) {
  std::int64_t product = 1;
  for (const std::int64_t length : shape) product *= length;
  return product;
}

// The compressed bytes of the tiles, read from the file itself.
class StreamReader {
 public:
  StreamReader(const TableReader& reader, const std::filesystem::path& name, std::int64_t fileSize)
      : m_reader(reader), m_file(name, std::ios::binary) {
    int status = 0;
    LONGLONG dataStart = 0;
    fits_get_hduaddrll(reader.File(), nullptr, &dataStart, nullptr, &status);
    const std::int64_t table = reader.Integer("NAXIS1", 0) * reader.Integer("NAXIS2", 0);
    m_heapStart = dataStart + reader.Integer("THEAP", table);
    m_heapEnd = std::min<std::int64_t>(fileSize, dataStart + table + reader.Integer("PCOUNT", 0));
    if (status != 0 || m_heapStart < dataStart) reader.Fail("has its compressed data nowhere");
  }

  // Elements stored for a row of a column, without reading them.
  std::int64_t Count(int column, std::int64_t row) {
    int status = 0;
    LONGLONG count = 0;
    m_offset = 0;
    fits_read_descriptll(m_reader.File(), column, row, &count, &m_offset, &status);
    if (status != 0 || count < 0 || m_offset < 0) Damaged(row);
    return count;
  }

  // The bytes behind the last Count(); false when they are not inside the file.
  bool InFile(std::int64_t bytes) const {
    return bytes <= m_heapEnd && m_offset <= m_heapEnd - bytes &&
           m_heapStart <= m_heapEnd - bytes - m_offset;
  }

  Bytes Read(std::int64_t row, std::int64_t bytes) {
    if (!InFile(bytes)) Damaged(row);
    m_bytes.resize(static_cast<std::size_t>(bytes));
    m_file.clear();
    m_file.seekg(m_heapStart + m_offset);
    m_file.read(reinterpret_cast<char*>(m_bytes.data()), static_cast<std::streamsize>(bytes));
    if (!m_file) Damaged(row);
    return m_bytes;
  }

  [[noreturn]] void Damaged(std::int64_t row) const {
    m_reader.Fail("the compressed data of tile " + std::to_string(row) + " are damaged");
  }

 private:
  const TableReader& m_reader;
  std::ifstream m_file;
  std::int64_t m_heapStart = 0;
  std::int64_t m_heapEnd = 0;
  LONGLONG m_offset = 0;
  std::vector<std::uint8_t> m_bytes;
};

// A tile that the method proper left out: floating-point pixels, packed or plain.
void CheckFallback(const TableReader& reader, StreamReader& streams, const FitsDescription& image,
                   std::int64_t row, std::int64_t pixels) {
  const std::int64_t bytesPixel = (image.type < 0 ? -image.type : image.type) / 8;
  if (const int column = reader.Column("UNCOMPRESSED_DATA"); column > 0) {
    const std::int64_t count = streams.Count(column, row);
    if (reader.ElementType(column) == 0 || count != pixels || !streams.InFile(count)) {
      streams.Damaged(row);
    }
    return;
  }
  const int column = reader.Column("GZIP_COMPRESSED_DATA");
  if (column == 0 || image.type > 0 || reader.ElementType(column) != TBYTE) streams.Damaged(row);
  const std::int64_t count = streams.Count(column, row);
  if (GzipLength(streams.Read(row, count), pixels * bytesPixel) != pixels * bytesPixel) {
    streams.Damaged(row);
  }
}

bool StreamHolds(const TileTable& table, const FitsDescription& image, Bytes stream,
                 const std::vector<std::int64_t>& shape) {
  const std::int64_t pixels = Product(shape);
  switch (table.method) {
    case Method::kRice:
      return RiceStreamHolds(stream, pixels, static_cast<int>(table.bytesPixel), table.group);
    case Method::kPlio:
      return PlioStreamHolds(stream);
    case Method::kGzip: {
      const std::int64_t length = GzipLength(stream, pixels * 8);
      // Reals packed as they are: the decoder takes them for doubles unless they are
      // four bytes each.
      if (table.unquantized) return length == pixels * 4 || length == pixels * 8;
      return length == pixels || length == pixels * 2 || length == pixels * 4 ||
             (length == pixels * 8 && image.type == CImage::DataTypeDouble);
    }
    case Method::kHcompress:
    default: {
      // The stream holds two axes; its first is the slower one.
      std::vector<std::int64_t> sides;
      for (const std::int64_t side : shape) {
        if (side > 1) sides.push_back(side);
      }
      if (sides.size() > 2) return false;
      const bool narrow = image.type == CImage::DataTypeInt8 || image.type == CImage::DataTypeInt16;
      const std::int64_t width = shape[0];
      return HcompressStreamHolds(stream, pixels / width, width, static_cast<int>(table.smooth),
                                  !narrow);
    }
  }
}

}  // namespace

bool CheckTileTable(fitsfile* file, const std::filesystem::path& name, std::int64_t fileSize,
                    const FitsDescription& image, const std::vector<LONGLONG>& axes) {
  const TableReader reader(file, name);
  const TileTable table = ReadTable(reader, image, axes);
  const std::int64_t bytesPixel = (image.type < 0 ? -image.type : image.type) / 8;

  std::int64_t tileRow = axes[0] * 8;  // decoded as up to 8 bytes a pixel
  for (std::size_t i = 1; i < table.tile.size(); ++i) {
    tileRow = CheckedMul(tileRow, table.tile[i]).value_or(kTileRowLimit + 1);
  }
  const bool hcompressTooLarge =
      table.method == Method::kHcompress && Product(table.tile) > kHcompressLimit;
  if (tileRow > kTileRowLimit || hcompressTooLarge) {
    reader.Fail("its compressed tiles are too large: " + std::to_string(Product(table.tile)) +
                    " pixels each, and a row of tiles may take " +
                    std::to_string(kTileRowLimit >> 20) + " MiB",
                "compress it again with smaller tiles");
  }
  const std::int64_t rowBytes = reader.Integer("NAXIS1", 0);
  const std::int64_t rows = reader.Integer("NAXIS2", 0);
  const auto tableBytes = CheckedMul(rowBytes, rows);
  if (!tableBytes || *tableBytes > fileSize || reader.Integer("PCOUNT", 0) < 0 ||
      reader.Integer("PCOUNT", 0) > fileSize) {
    reader.Fail("declares a table of " + std::to_string(rows) + " tiles, more than the file of " +
                std::to_string(fileSize) + " bytes holds");
  }
  if (rows < table.tiles) {
    reader.Fail("holds " + std::to_string(rows) + " of the " + std::to_string(table.tiles) +
                " tiles of its image");
  }
  const std::int64_t bytes = image.width * image.height * image.planes * bytesPixel;
  if (bytes > kExpansionFloor && bytes / kExpansionLimit > fileSize) {
    reader.Fail("declares " + std::to_string(bytes) + " bytes of pixels in a file of " +
                std::to_string(fileSize) + " bytes, more than compression can give");
  }
  return table.scaled && !table.unquantized;
}

std::int64_t CheckTileStreams(fitsfile* file, const std::filesystem::path& name,
                              std::int64_t fileSize, const FitsDescription& image,
                              const std::vector<LONGLONG>& axes) {
  const TableReader reader(file, name);
  const TileTable table = ReadTable(reader, image, axes);
  const int column = reader.Column("COMPRESSED_DATA");
  const int element = column > 0 ? reader.ElementType(column) : 0;
  const int wanted = table.method == Method::kPlio ? TSHORT : TBYTE;
  if (element != wanted) reader.Fail("has no column of compressed data of the right type");

  StreamReader streams(reader, name, fileSize);
  for (std::int64_t row = 1; row <= table.tiles; ++row) {
    const std::vector<std::int64_t> shape = TileShape(table, row - 1);
    const std::int64_t count = streams.Count(column, row);
    if (count == 0) {
      CheckFallback(reader, streams, image, row, Product(shape));
      continue;
    }
    if (count > fileSize) streams.Damaged(row);
    const Bytes stream = streams.Read(row, count * (wanted == TSHORT ? 2 : 1));
    if (!StreamHolds(table, image, stream, shape)) streams.Damaged(row);
  }
  // Six tables with an entry for each tile across.
  return 65536 + std::min(48 * CeilDiv(table.axes[0], table.tile[0]), kMostSpare);
}

}  // namespace korin
