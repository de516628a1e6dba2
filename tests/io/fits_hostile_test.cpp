#include <zlib.h>

#include <algorithm>

#include "io_fixture.h"
#include "korinimage/exceptions.h"
#include "support/recording_progress.h"
#include "tile_files.h"

namespace korin::test {
namespace {

// Files that lie or are damaged: an error that says so, or an image; never a crash,
// and no more store than the small budget and disk of the fixture.
class HostileTest : public IoTest {
 protected:
  HostileTest() { m_manager = MakeManager(1, 64, 8); }

  enum class Outcome { kLoaded, kFileError, kNoRoom };

  Outcome Load(const Bytes& bytes) {
    WriteBytes(Path("h.fits"), bytes);
    try {
      const auto image = LoadFits(m_manager, Path("h.fits"));
      return Outcome::kLoaded;
    } catch (const FileError&) {
      return Outcome::kFileError;
    } catch (const CVmMemoryAllocationError&) {
      return Outcome::kNoRoom;
    }
  }

  static Bytes Plain() {
    return Unit({"SIMPLE  =                    T", "BITPIX  =                   16",
                 "NAXIS   =                    2", "NAXIS1  =                   60",
                 "NAXIS2  =                   50", "BSCALE  =                  1.0",
                 "BZERO   =              32768.0", "OBJECT  = 'M 13    '"},
                RandomBytes(6000, 3));
  }

  // A small tile-compressed image: 60 x 50, rows as tiles.
  Bytes Compressed(int method, int bitpix, long tileHeight = 1) const {
    std::vector<int> values(3000);
    for (std::size_t i = 0; i < values.size(); ++i) {
      values[i] = static_cast<int>(i % 60 + i * 7919 % 13);
    }
    const auto file = Path("made.fits");
    std::filesystem::remove(file);
    if (bitpix == LONG_IMG) {
      WriteTiles(file, {method, bitpix, 60, tileHeight}, TINT, values);
    } else {
      WriteTiles(file, {method, bitpix, 60, tileHeight}, TSHORT,
                 std::vector<short>(values.begin(), values.end()));
    }
    return ReadBytes(file);
  }

  // Puts another card in place of the first that begins with the keyword.
  static Bytes WithCard(Bytes bytes, std::string card) {
    const std::string keyword = card.substr(0, 9);
    const auto at = std::search(bytes.begin(), bytes.end(), keyword.begin(), keyword.end());
    EXPECT_NE(at, bytes.end()) << keyword;
    card.resize(80, ' ');
    if (at != bytes.end()) std::copy(card.begin(), card.end(), at);
    return bytes;
  }

  static Bytes Start(Bytes bytes, std::size_t length) {
    bytes.resize(length);
    return bytes;
  }

  // Where the table's compressed bytes lie, for tables made above.
  struct Heap {
    std::size_t descriptors = 0;
    std::size_t start = 0;
  };
  Heap FindHeap() const {
    fitsfile* fits = nullptr;
    int status = 0;
    LONGLONG data = 0;
    long rowBytes = 0;
    long rows = 0;
    fits_open_diskfile(&fits, Path("made.fits").string().c_str(), READONLY, &status);
    fits_movabs_hdu(fits, 2, nullptr, &status);
    fits_get_hduaddrll(fits, nullptr, &data, nullptr, &status);
    fits_read_key(fits, TLONG, "NAXIS1", &rowBytes, nullptr, &status);
    fits_read_key(fits, TLONG, "NAXIS2", &rows, nullptr, &status);
    fits_close_file(fits, &status);
    EXPECT_EQ(status, 0);
    const auto start = static_cast<std::size_t>(data);
    return {start, start + static_cast<std::size_t>(rowBytes * rows)};
  }
};

TEST_F(HostileTest, FilesCutAnywhereAreRefused) {
  const auto whole = Plain();
  const std::size_t pixels = 2880 + 6000;
  for (std::size_t length = 0; length < whole.size(); length += 61) {
    EXPECT_EQ(Load(Start(whole, length)) == Outcome::kFileError, length < pixels) << length;
  }
  for (const int method : {RICE_1, GZIP_1, HCOMPRESS_1}) {
    const auto tiles = Compressed(method, SHORT_IMG, method == HCOMPRESS_1 ? 25 : 1);
    const Heap heap = FindHeap();
    for (std::size_t length = 0; length <= heap.start; length += 97) {
      EXPECT_EQ(Load(Start(tiles, length)), Outcome::kFileError) << method << ' ' << length;
    }
  }
}

// Any byte of a header turned into any other one.
TEST_F(HostileTest, FlippedBytesNeverCrash) {
  std::mt19937 random(17);
  const std::pair<Bytes, int> files[] = {{Plain(), 4000},
                                         {Compressed(RICE_1, SHORT_IMG), 1000},
                                         {Compressed(GZIP_2, LONG_IMG), 500},
                                         {Compressed(PLIO_1, SHORT_IMG, 10), 500},
                                         {Compressed(HCOMPRESS_1, LONG_IMG, 25), 500}};
  int refused = 0;
  for (const auto& [file, rounds] : files) {
    ASSERT_EQ(Load(file), Outcome::kLoaded);
    const std::size_t text = std::min<std::size_t>(file.size(), 2880 * 3);
    for (int round = 0; round < rounds; ++round) {
      auto bytes = file;
      // Half of the rounds hit cards in use, the others anything, streams included.
      const std::size_t range = round % 2 == 0 ? 700 : file.size();
      const std::size_t start = round % 2 == 0 && file.size() > 20000 ? 2880 : 0;
      const std::size_t at = (start + random() % range) % (round % 2 == 0 ? text : file.size());
      bytes[at] = round % 3 == 0 ? static_cast<std::uint8_t>('0' + random() % 10)
                                 : static_cast<std::uint8_t>(random());
      refused += Load(bytes) == Outcome::kLoaded ? 0 : 1;
      ASSERT_EQ(m_manager->GetAllocatedBlocks(), 0) << "byte " << at;
    }
  }
  EXPECT_GT(refused, 500);
}

TEST_F(HostileTest, LiesAboutSizesAreRefusedBeforeAnythingIsAllocated) {
  for (const char* card : {"NAXIS1  =           2147483647", "NAXIS1  =           2147483648",
                           "NAXIS1  =  9223372036854775807", "NAXIS1  =                   -1",
                           "NAXIS1  =                    0", "NAXIS1  =                3.5E9",
                           "NAXIS2  =                  'x'", "NAXIS   =                   -1",
                           "NAXIS   =                    3", "NAXIS   =                  999",
                           "NAXIS   =                 1000", "NAXIS   =           4294967298",
                           "BITPIX  =                   17", "BITPIX  =                   64",
                           "BITPIX  =                    0", "BSCALE  =                1E999",
                           "BSCALE  =                  NaN", "BZERO   = 'text'"}) {
    EXPECT_EQ(Load(WithCard(Plain(), card)), Outcome::kFileError) << card;
  }
  // Products that wrap to something small.
  auto wraps = WithCard(WithCard(Plain(), "NAXIS1  =           2147483647"),
                        "NAXIS2  =           2147483647");
  EXPECT_EQ(Load(WithCard(wraps, "BITPIX  =                  -64")), Outcome::kFileError);
  std::string cube = "NAXIS3  =           2147483647";
  wraps = WithCard(WithCard(wraps, "NAXIS   =                    3"), cube.replace(0, 6, "BSCALE"));
  EXPECT_EQ(Load(wraps), Outcome::kFileError);
  // No END at all, and nothing but cards.
  Bytes endless = Plain();
  for (int i = 0; i < 40; ++i) {
    const auto block = Plain();
    endless.insert(endless.end(), block.begin(), block.begin() + 560);
  }
  const std::string end = "END     ";
  const auto find = [&] {
    return std::search(endless.begin(), endless.end(), end.begin(), end.end());
  };
  for (auto at = find(); at != endless.end(); at = find()) *at = 'X';
  EXPECT_EQ(Load(endless), Outcome::kFileError);
}

TEST_F(HostileTest, TilesThatLieAboutThemselvesAreRefused) {
  // Settings and geometry of the table.
  const auto rice = Compressed(RICE_1, SHORT_IMG);
  for (const char* card : {"ZTILE1  =                    0", "ZTILE1  =                   -5",
                           "ZTILE2  =           4294967296", "ZVAL1   =                    0",
                           "ZVAL1   =                  -32", "ZVAL2   =                    3",
                           "ZNAXIS2 =               500000", "ZNAXIS1 =           2000000000",
                           "ZCMPTYPE= 'NONSENSE'          ", "PCOUNT  =  9000000000000000000",
                           "NAXIS2  =                   10", "NAXIS2  =           1000000000"}) {
    EXPECT_EQ(Load(WithCard(rice, card)), Outcome::kFileError) << card;
  }
  // Descriptors: a tile longer than the file, or beyond its end.
  const Heap heap = FindHeap();
  for (const std::size_t field : {0U, 4U}) {
    auto bytes = rice;
    bytes[heap.descriptors + 8 * 7 + field] = 0x7F;
    EXPECT_EQ(Load(bytes), Outcome::kFileError) << field;
  }
  // A stream of zeros: a decoder looking for the next one bit would run on.
  auto bytes = rice;
  std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(heap.start) + 2, bytes.end(), 0x00);
  bytes[heap.start + 2] = 0x20;  // pixels split after one bit
  EXPECT_EQ(Load(bytes), Outcome::kFileError);

  // An H-transform stream of another shape than its tile, or cut short.
  const auto hcompress = Compressed(HCOMPRESS_1, SHORT_IMG, 25);
  const Heap wavelets = FindHeap();
  for (const std::size_t at : {4U, 8U, 22U}) {  // rows, columns, bit planes
    bytes = hcompress;
    bytes[wavelets.start + at] = 0x40;
    EXPECT_EQ(Load(bytes), Outcome::kFileError) << at;
  }
  bytes = hcompress;
  bytes[wavelets.descriptors + 2] = 0;
  bytes[wavelets.descriptors + 3] = 60;  // of some hundred bytes
  EXPECT_EQ(Load(bytes), Outcome::kFileError);

  // A PLIO list that claims more words than there are.
  bytes = Compressed(PLIO_1, SHORT_IMG, 10);
  const Heap lists = FindHeap();
  bytes[lists.start + 6] = 0x7F;
  EXPECT_EQ(Load(bytes), Outcome::kFileError);
}

// A tile that unpacks to a thousand times its pixels.
TEST_F(HostileTest, GzipBombsAreRefused) {
  auto bytes = Compressed(GZIP_1, SHORT_IMG, 50);
  const Heap heap = FindHeap();
  Bytes zeros(4 << 20);
  Bytes bomb(16384);
  z_stream stream{};
  ASSERT_EQ(deflateInit2(&stream, 9, Z_DEFLATED, MAX_WBITS + 16, 9, Z_DEFAULT_STRATEGY), Z_OK);
  stream.next_in = zeros.data();
  stream.avail_in = static_cast<uInt>(zeros.size());
  stream.next_out = bomb.data();
  stream.avail_out = static_cast<uInt>(bomb.size());
  ASSERT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  const auto length = bomb.size() - stream.avail_out;
  deflateEnd(&stream);
  bytes.resize(heap.start);
  bytes.insert(bytes.end(), bomb.begin(), bomb.begin() + static_cast<std::ptrdiff_t>(length));
  bytes.resize((bytes.size() + 2879) / 2880 * 2880);
  bytes[heap.descriptors + 2] = static_cast<std::uint8_t>(length >> 8);
  bytes[heap.descriptors + 3] = static_cast<std::uint8_t>(length & 0xFF);
  const std::string count = "PCOUNT  = " + std::to_string(length);
  EXPECT_EQ(Load(WithCard(bytes, count)), Outcome::kFileError);
}

TEST_F(HostileTest, ImagesBeyondMemoryAndDiskAreRefusedAndLeaveNothing) {
  // 20 MB of real zeros, for 1 MiB of memory and 8 of disk.
  const auto huge =
      Unit({"SIMPLE  = T", "BITPIX  = 8", "NAXIS   = 2", "NAXIS1  = 5000", "NAXIS2  = 4000"},
           Bytes(20000000));
  EXPECT_EQ(Load(huge), Outcome::kNoRoom);
  EXPECT_EQ(m_manager->GetAllocatedBlocks(), 0);

  // One block for the whole image, larger than the memory.
  m_manager->SetAllocationPolicy(CVmManager::AllocationPolicy::Image);
  const auto large =
      Unit({"SIMPLE  = T", "BITPIX  = 8", "NAXIS   = 2", "NAXIS1  = 2000", "NAXIS2  = 1000"},
           Bytes(2000000));
  EXPECT_EQ(Load(large), Outcome::kNoRoom);

  // A sink that stops the load at each of its calls.
  m_manager->SetAllocationPolicy(CVmManager::AllocationPolicy::Blocks);
  WriteBytes(Path("l.fits"), large);
  for (int call = 0; call < 3; ++call) {
    const auto sink = std::make_shared<RecordingProgress>();
    sink->throwAt = call;
    EXPECT_THROW(LoadFits(m_manager, Path("l.fits"), {}, sink), SinkError);
    EXPECT_EQ(m_manager->GetAllocatedBlocks(), 0);
  }
}

}  // namespace
}  // namespace korin::test
