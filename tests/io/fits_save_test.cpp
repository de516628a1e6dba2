#include <fitsio.h>

#include <algorithm>
#include <cstdlib>
#include <tuple>

#include "io_fixture.h"
#include "support/recording_progress.h"
#include "support/system.h"

namespace korin::test {
namespace {

struct Kind {
  CImage::DataType type;
  bool isSigned;
};
constexpr Kind kKinds[] = {{CImage::DataTypeInt8, false},  {CImage::DataTypeInt16, true},
                           {CImage::DataTypeInt16, false}, {CImage::DataTypeInt32, true},
                           {CImage::DataTypeInt32, false}, {CImage::DataTypeFloat, true},
                           {CImage::DataTypeDouble, true}};

// Cards without structure and scaling.
std::vector<std::wstring> FreeCards(const CHeader& header) {
  std::vector<std::wstring> cards;
  for (int i = 0; i < header.GetCount(); ++i) {
    const std::wstring card = header.GetAt(i);
    bool structural = false;
    for (const wchar_t* key : {L"SIMPLE", L"BITPIX", L"NAXIS", L"BSCALE", L"BZERO"}) {
      structural = structural || card.rfind(key, 0) == 0;
    }
    if (!structural) cards.push_back(card);
  }
  return cards;
}

class RoundTrip : public IoTest, public ::testing::WithParamInterface<std::tuple<Kind, int>> {};
using SaveFitsTest = IoTest;

// Every bit pattern survives, NaN payloads and denormals included, whatever the
// blocks of either side; the file holds what the format says.
TEST_P(RoundTrip, KeepsEveryByteAndCard) {
  const auto& [kind, planes] = GetParam();
  const int width = 131;
  const int height = 77;
  CImage image(m_manager, kind.type, width, height, planes, 1.0, 0.0, kind.isSigned, nullptr);
  const auto pixels = RandomBytes(static_cast<std::size_t>(image.GetImageSize()), 5);
  SetPixels(image, pixels);
  for (const wchar_t* card :
       {L"SIMPLE  =                    F", L"OBJECT  = 'it''s M 13' / name", L"LONGSTR = 'one &'",
        L"CONTINUE  'two'", L"NAXIS3  =                   99", L"END", L"HISTORY first", L"",
        L"COMMENT = not a value", L"HISTORY second", L"TEMP    = 21 / in \u00b0C",
        L"DATASUM = '1'"}) {
    image.Header().Add(card);
  }
  SaveFits(image, Path("a.fits"));

  auto bytes = ReadBytes(Path("a.fits"));
  ASSERT_EQ(bytes.size() % 2880, 0U);
  const auto size = static_cast<std::size_t>(image.GetBytesPixel());
  Bytes expected = pixels;
  for (std::size_t i = 0; i < expected.size(); i += size) {
    std::reverse(expected.begin() + static_cast<std::ptrdiff_t>(i),
                 expected.begin() + static_cast<std::ptrdiff_t>(i + size));
    if (kind.type > 8 && !kind.isSigned) expected[i] ^= 0x80;
  }
  ASSERT_TRUE(std::equal(expected.begin(), expected.end(), bytes.begin() + 2880));

  const auto other = MakeManager(8, 4);
  const auto read = LoadFits(other, Path("a.fits"));
  EXPECT_EQ(read->GetBitsPixel(), kind.type);
  EXPECT_EQ(read->IsSigned(), kind.isSigned);
  EXPECT_EQ(read->GetBscale(), 1.0);
  EXPECT_EQ(read->GetBzero(), 0.0);
  EXPECT_EQ(read->GetPlanes(), planes);
  EXPECT_EQ(Pixels(*read), pixels);
  const auto cards = FreeCards(read->Header());
  ASSERT_EQ(cards.size(), 8U);
  EXPECT_EQ(cards[0].substr(0, 30), L"OBJECT  = 'it''s M 13' / name ");
  EXPECT_EQ(cards[2].substr(0, 15), L"CONTINUE  'two'");
  EXPECT_EQ(cards[4], std::wstring(80, L' '));
  EXPECT_EQ(cards[6].substr(0, 14), L"HISTORY second");
  EXPECT_EQ(cards[7].substr(0, 21), L"TEMP    = 21 / in \u00b0C ");

  SaveFits(*read, Path("b.fits"));
  EXPECT_EQ(ReadBytes(Path("b.fits")), bytes) << "a second round must change nothing";
}

INSTANTIATE_TEST_SUITE_P(AllTypes, RoundTrip,
                         ::testing::Combine(::testing::ValuesIn(kKinds), ::testing::Values(1, 3)));

TEST_F(SaveFitsTest, KeepsScalingWhereTheHeaderHasIt) {
  CImage image(m_manager, CImage::DataTypeInt16, 4, 3, 1, 0.1, -7.25, true, nullptr);
  image.Header().Add(L"FIRST   =                    1");
  image.Header().Add(L"BZERO   =                    0");
  image.Header().Add(L"LAST    =                    1");
  SaveFits(image, Path("s.fits"));
  const auto read = LoadFits(m_manager, Path("s.fits"));
  EXPECT_EQ(read->GetBscale(), 0.1);
  EXPECT_EQ(read->GetBzero(), -7.25);
  const CHeader& header = read->Header();
  EXPECT_LT(header.Find(L"BSCALE"), header.Find(L"FIRST"));
  EXPECT_EQ(header.Find(L"BZERO"), header.Find(L"FIRST") + 1);
  EXPECT_EQ(header.Find(L"LAST"), header.Find(L"BZERO") + 1);
}

// An unsigned image with a scaling of its own has no convention to be written by:
// the file keeps the physical values.
TEST_F(SaveFitsTest, KeepsPhysicalValuesOfScaledUnsignedImages) {
  CImage image(m_manager, CImage::DataTypeInt16, 3, 1, 1, 0.5, 10.0, false, nullptr);
  const std::vector<std::uint16_t> values = {0, 32768, 65535};
  SetPixels(image, BytesOf(values));
  SaveFits(image, Path("u.fits"));
  const auto read = LoadFits(m_manager, Path("u.fits"));
  EXPECT_TRUE(read->IsSigned());
  const auto stored = As<std::int16_t>(Pixels(*read));
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(read->ApplyBaseScaleOffset(stored[i]), image.ApplyBaseScaleOffset(values[i]));
  }
}

TEST_F(SaveFitsTest, OtherSoftwareReadsUnsignedPixels) {
  CImage image(m_manager, CImage::DataTypeInt32, 2, 2, 1, 1.0, 0.0, false, nullptr);
  const std::vector<unsigned> values = {0, 1, 2147483648U, 4294967295U};
  SetPixels(image, BytesOf(values));
  SaveFits(image, Path("c.fits"));
  fitsfile* file = nullptr;
  int status = 0;
  unsigned read[4] = {};
  fits_open_diskfile(&file, Path("c.fits").string().c_str(), READONLY, &status);
  fits_read_img(file, TUINT, 1, 4, nullptr, read, nullptr, &status);
  fits_close_file(file, &status);
  ASSERT_EQ(status, 0);
  EXPECT_EQ(std::vector<unsigned>(read, read + 4), values);
}

// Whatever stops a save: the file that was there stays, and nothing else appears.
TEST_F(SaveFitsTest, LeavesNothingBehindOnFailure) {
  CImage image(m_manager, CImage::DataTypeDouble, 2000, 300, 1, 1.0, 0.0, true, nullptr);
  image.SetDefaultLevel();
  WriteBytes(Path("old.fits"), {1, 2, 3});
  for (int call = 0; call <= 3; ++call) {
    const auto sink = std::make_shared<RecordingProgress>();
    sink->throwAt = call;
    EXPECT_THROW(SaveFits(image, Path("old.fits"), sink), SinkError);
    const auto pngSink = std::make_shared<RecordingProgress>();
    pngSink->throwAt = call;
    EXPECT_THROW(SavePng(image, Path("old.fits"), {}, pngSink), SinkError);
  }
  EXPECT_EQ(ReadBytes(Path("old.fits")), (Bytes{1, 2, 3}));
  EXPECT_EQ(Names(m_folder).size(), 1U);

  EXPECT_THROW(SaveFits(image, Path("missing/x.fits")), FileError);
  std::filesystem::create_directory(Path("folder"));
  EXPECT_THROW(SaveFits(image, Path("folder")), FileError);
  EXPECT_EQ(Names(m_folder).size(), 2U);
  if (kWindows) return;  // its pipes lie in no folder
  ASSERT_EQ(std::system(("mkfifo " + Path("pipe").string()).c_str()), 0);
  EXPECT_THROW(SaveFits(image, Path("pipe")), FileError) << "pipes and devices are not replaced";
  EXPECT_EQ(Names(m_folder).size(), 3U);
}

TEST_F(SaveFitsTest, WritesThroughALink) {
  CImage image(m_manager, CImage::DataTypeInt8, 2, 2, 1, 1.0, 0.0, false, nullptr);
  std::filesystem::create_directory(Path("there"));
  std::error_code error;
  std::filesystem::create_symlink("there/target.fits", Path("link.fits"), error);
  if (test::kWindows && error) GTEST_SKIP() << "no links here: " << error.message();
  ASSERT_FALSE(error);
  SaveFits(image, Path("link.fits"));
  EXPECT_TRUE(std::filesystem::is_symlink(Path("link.fits")));
  EXPECT_TRUE(std::filesystem::is_regular_file(Path("there/target.fits")));
}

}  // namespace
}  // namespace korin::test
