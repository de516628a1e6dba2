// What the exchange answers, and what it refuses.
#include <climits>

#include "exchange/exchange_fixture.h"
#include "support/fault_at.h"
#include "support/system.h"

namespace korin::test {
namespace {

using SharedMemTest = ExchangeTest;

CImage ImageOfSize(int width, int height, int planes) {
  CImage image;
  image.SetBitsPixel(CImage::DataTypeInt8);
  image.SetWidth(width);
  image.SetHeight(height);
  image.SetPlanes(planes);
  return image;
}

TEST_F(SharedMemTest, LargeImagesTakeTheFile) {
  EXPECT_FALSE(exchange::NeedsFile(ImageOfSize(8660, 8660, 1)));
  EXPECT_FALSE(exchange::NeedsFile(ImageOfSize(5000, 5001, 3)));
  EXPECT_FALSE(exchange::NeedsFile(ImageOfSize(5000, 5002, 3)));
  EXPECT_TRUE(exchange::NeedsFile(ImageOfSize(5000, 5003, 3)));
  // Products that 32 or 64 bits would wrap.
  EXPECT_TRUE(exchange::NeedsFile(ImageOfSize(65536, 65536, 1)));
  EXPECT_TRUE(exchange::NeedsFile(ImageOfSize(37838, 37838, 3)));
  EXPECT_TRUE(exchange::NeedsFile(ImageOfSize(INT_MAX, INT_MAX, 3)));
  EXPECT_FALSE(exchange::PixelBytes(ImageOfSize(INT_MAX, INT_MAX, 3)));
}

TEST_F(SharedMemTest, ImagesOnBothSidesOfTheLimitArrive) {
  const auto manager = MakeManager(1 << 20, 4000);
  for (const int height : {5002, 5003}) {
    CImage image(manager, CImage::DataTypeInt8, 5000, height, 3, 1.0, 0.0, false, kSilent);
    for (int plane = 0; plane < 3; ++plane) image.Fill(plane, 10.0 + plane);
    *image.Store()->GetImageAdr(4999, height - 1, 2, true, false, nullptr) = 255;
    ASSERT_EQ(CSharedMem::CreateFileMappings(1), 1);
    ASSERT_EQ(Write(image), 1);
    EXPECT_EQ(FileExists(), height == 5003);
    image = CImage();
    CImage received;
    ASSERT_EQ(CSharedMem::ReadSharedMemory(manager, &received, 1), 1);
    for (int plane = 0; plane < 3; ++plane) {
      const auto [min, max, average] = received.GetMinMaxAvr(plane);
      EXPECT_EQ(min, 10.0 + plane);
      EXPECT_EQ(max, plane == 2 ? 255.0 : 10.0 + plane);
      EXPECT_NEAR(average, 10.0 + plane, 1e-4);
    }
    EXPECT_EQ(received.GetPixel(4999, height - 1, 2), 255.0);
    EXPECT_FALSE(FileExists());
  }
}

TEST_F(SharedMemTest, ClosedExchangeAndMissingThingsAreRefused) {
  CImage image = MakeSample({8, false}, 1);
  const auto all = [&](int shared, int file) {
    EXPECT_EQ(Write(image), shared);
    EXPECT_EQ(Read(image), shared);
    EXPECT_EQ(CSharedMem::WriteSharedFile(&image), file);
    EXPECT_EQ(CSharedMem::ReadSharedFile(m_manager, &image), file);
  };
  all(0, 0);
  // Without the pixels' part only attributes travel.
  ASSERT_EQ(CSharedMem::CreateFileMappings(0), 1);
  EXPECT_EQ(Write(image, false), 1);
  EXPECT_EQ(Read(image, false), 1);
  all(0, 1);
  // A second call adds what is missing and loses nothing.
  ASSERT_EQ(Write(image, false), 1);
  ASSERT_EQ(CSharedMem::CreateFileMappings(1), 1);
  CImage received;
  EXPECT_EQ(Read(received, false), 1);
  EXPECT_EQ(received.GetOrgFileName(), image.GetOrgFileName());
  all(1, 1);

  EXPECT_EQ(CSharedMem::WriteSharedMemory(nullptr, 1), 0);
  EXPECT_EQ(CSharedMem::ReadSharedMemory(m_manager, nullptr, 1), 0);
  EXPECT_EQ(CSharedMem::WriteSharedFile(nullptr), 0);
  EXPECT_EQ(CSharedMem::ReadSharedFile(m_manager, nullptr), 0);
  EXPECT_EQ(CSharedMem::ReadSharedMemory(nullptr, &received, 1), 0);
  EXPECT_EQ(CSharedMem::WriteSharedFile(&image), 1);
  EXPECT_EQ(CSharedMem::ReadSharedFile(nullptr, &received), 0);
  CImage empty;
  EXPECT_EQ(CSharedMem::WriteSharedFile(&empty), 0);
  CSharedMem::CloseMappingHandles();
  CSharedMem::CloseMappingHandles();
  all(0, 0);
}

TEST_F(SharedMemTest, ImagesThatCannotTravelAreRefused) {
  ASSERT_EQ(CSharedMem::CreateFileMappings(1), 1);
  ASSERT_EQ(Write(MakeSample({8, false}, 1)), 1);
  const auto before = RawBytes(kImageMapping);
  EXPECT_EQ(Write(MakeSample({8, false}, 1, {3, 3, 4})), 0);
  EXPECT_EQ(RawBytes(kImageMapping), before);
  // The file has no such limit.
  const CImage four = MakeSample({8, false}, 1, {3, 3, 4});
  EXPECT_EQ(CSharedMem::WriteSharedFile(&four), 1);

  // Attributes that do not fit the store, and a store without its manager.
  CImage changed = MakeSample({8, false}, 1);
  changed.SetBitsPixel(CImage::DataTypeFloat);
  EXPECT_EQ(Write(changed), 0);
  EXPECT_EQ(CSharedMem::WriteSharedFile(&changed), 0);
  EXPECT_FALSE(FileExists()) << "a file that failed is removed";
  auto manager = MakeSampleManager(0);
  const CImage orphan(manager, CImage::DataTypeInt8, 4, 4, 1, 1.0, 0.0, false, kSilent);
  manager.reset();
  EXPECT_EQ(Write(orphan), 0);
  EXPECT_EQ(CSharedMem::WriteSharedFile(&orphan), 0);
}

TEST_F(SharedMemTest, SmallerAttributesSendThatPartOfTheStore) {
  ASSERT_EQ(CSharedMem::CreateFileMappings(1), 1);
  for (const bool byFile : {false, true}) {
    exchange::g_maxMappedSamples = byFile ? 1 : 1000;
    std::vector<std::uint8_t> pixels(60);
    for (std::size_t i = 0; i < 60; ++i) pixels[i] = static_cast<std::uint8_t>(i);
    CImage image = MakeImage(m_manager, {6, 5, 2}, pixels);
    image.SetWidth(2);
    image.SetHeight(3);
    ASSERT_EQ(Write(image), 1);
    CImage received;
    ASSERT_EQ(Read(received), 1);
    EXPECT_EQ(ReadPixels<std::uint8_t>(received),
              (std::vector<std::uint8_t>{0, 1, 6, 7, 12, 13, 30, 31, 36, 37, 42, 43}));
  }
}

TEST_F(SharedMemTest, LevelsFollowThePlanes) {
  ASSERT_EQ(CSharedMem::CreateFileMappings(0), 1);
  CImage image = MakeSample({8, false}, 1, {2, 2, 3});
  image.LevelMinRef() = {1.0};  // shorter than the planes: missing ones are 0
  image.LevelMaxRef().clear();
  ASSERT_EQ(Write(image, false), 1);
  CImage received(m_manager, CImage::DataTypeInt8, 2, 2, 1, 1.0, 0.0, false, kSilent);
  ASSERT_EQ(Read(received, false), 1);
  EXPECT_EQ(received.GetLevelMin(), (std::vector<double>{1.0, 0.0, 0.0}));
  EXPECT_EQ(received.GetLevelMax(), (std::vector<double>{2.0, 1.0, 1.0}));
  EXPECT_EQ(received.GetLevelRange(), (std::vector<double>{1.0, 1.0, 1.0}));
}

TEST_F(SharedMemTest, FileIsJudgedByItsSizeBeforeAnythingIsAllocated) {
  exchange::g_maxMappedSamples = 100;
  ASSERT_EQ(CSharedMem::CreateFileMappings(1), 1);
  const CImage image = MakeSample({32, true}, 0);
  ASSERT_EQ(Write(image), 1);
  const auto size = std::filesystem::file_size(FilePath());
  EXPECT_EQ(size, static_cast<std::uintmax_t>(image.GetImageSize()));
  std::error_code error;
  std::filesystem::resize_file(FilePath(), size - 1, error);
  if (test::kWindows && error)
    GTEST_SKIP() << "nobody may resize the writer's file here: " << error.message();
  ASSERT_FALSE(error);
  const auto allocated = m_manager->GetAllocatedBlocks();
  CImage received;
  EXPECT_EQ(Read(received), 0);
  EXPECT_TRUE(FileExists());
  EXPECT_TRUE(received.IsEmpty());
  EXPECT_EQ(m_manager->GetAllocatedBlocks(), allocated);
  EXPECT_EQ(received.GetWidth(), kSampleShape.width) << "attributes stay";

  std::filesystem::resize_file(FilePath(), size + 5);
  EXPECT_EQ(CSharedMem::ReadSharedFile(m_manager, &received), 1);
  EXPECT_FALSE(FileExists());
}

// Every size, type and flag that the image mapping can name, and bytes at random.
TEST_F(SharedMemTest, HostileMappingsNeverDamageTheImage) {
  constexpr std::size_t kBytes = wire::image::kBytes;
  exchange::g_maxMappedSamples = 100000;  // keeps accepted sizes small
  ASSERT_EQ(CSharedMem::CreateFileMappings(1), 1);
  std::mt19937 random(5);
  CImage image = MakeSample({16, false}, 0, {5, 4, 1});
  ASSERT_EQ(Write(image), 1);
  const auto good = RawBytes(kImageMapping);
  int accepted = 0;
  const auto tryRead = [&](const std::vector<BYTE>& bytes, bool pixels) {
    SetRawBytes(kImageMapping, bytes);
    std::int32_t fields[5];  // type, signed, width, height, planes
    std::memcpy(fields, bytes.data(), sizeof fields);
    const auto [type, isSigned, width, height, planes] = fields;
    const int least = pixels ? 1 : 0;
    const bool isImage = (ElementKindOf(type, isSigned != 0) || (type == 0 && !pixels)) &&
                         width >= least && height >= least && planes >= least && planes <= 3;
    const std::string before = Describe(image);
    const int answer = Read(image, pixels);
    if (!isImage) {
      EXPECT_EQ(answer, 0);
      EXPECT_EQ(Describe(image), before);
    }
    accepted += answer;
    // Whatever was read, the image can be measured or says that it cannot.
    try {
      image.GetMinMax(-1);
      image.SetDefaultLevel();
    } catch (const std::exception&) {
    }
    image = MakeSample({16, false}, 1, {5, 4, 1});
  };
  for (std::size_t offset = 0; offset < kBytes; offset += 4) {
    for (const std::uint32_t value : {0xFFFFFFFFu, 0x80000000u, 0x7FFFFFFFu, 0u, 4u, 0x10000u}) {
      auto bytes = good;
      std::memcpy(bytes.data() + offset, &value, 4);
      tryRead(bytes, value % 2 == 0);
    }
  }
  EXPECT_GT(accepted, 1000) << "what means no harm is taken";
  std::vector<BYTE> header(wire::header::kBytes);
  for (int round = 0; round < 200; ++round) {
    auto bytes = good;
    for (std::size_t i = round % 4 == 0 ? 0 : 20; i < kBytes; ++i) {
      bytes[i] = static_cast<BYTE>(random());
    }
    for (BYTE& byte : header) byte = static_cast<BYTE>(random());
    SetRawBytes(kHeaderMapping, header);
    tryRead(bytes, round % 2 == 0);
  }
}

// The n-th call of the system fails, for every n; then all works again.
TEST_F(SharedMemTest, EveryFailureOfTheSystemIsAnswered) {
  CImage image = MakeSample({-32, false}, 1, {20, 20, 2});
  const auto pixels = StoreBytes(*image.Store());
  const auto exchangeOnce = [&] {
    CImage received;
    const bool written = CSharedMem::CreateFileMappings(1) == 1 && Write(image) == 1;
    EXPECT_TRUE(written || !FileExists()) << "a file that failed is removed";
    const bool good = written && Read(received) == 1 && StoreBytes(*received.Store()) == pixels;
    CSharedMem::CloseMappingHandles();
    return good;
  };
  for (const std::int64_t limit : {1, 1000}) {
    exchange::g_maxMappedSamples = limit;
    for (const auto fault : {platform::Fault::kNoSpace, platform::Fault::kIoError,
                             platform::Fault::kShort, platform::Fault::kInterrupted}) {
      const bool mustWork =
          fault == platform::Fault::kShort || fault == platform::Fault::kInterrupted;
      int failures = 0;
      for (int n = 1;; ++n) {
        ASSERT_LT(n, 1000);
        const bool good = [&] {
          const FaultAt failure(n, fault);
          return exchangeOnce();
        }();
        ASSERT_TRUE(good || !mustWork) << n;
        failures += good ? 0 : 1;
        if (!FaultAt::Happened()) break;  // every call has had its turn
        ASSERT_TRUE(exchangeOnce()) << "after a failure of call " << n;
        ASSERT_FALSE(FileExists()) << n;
      }
      EXPECT_EQ(failures > 10, !mustWork) << failures;
    }
  }
}

}  // namespace
}  // namespace korin::test
