// Images of gigabytes and terabytes, all blocks of which are one small buffer: what
// is counted, multiplied and addressed on the way must not stop at 32 bits.
#include <vector>

#include "image/image_fixture.h"
#include "vm/counting_backends.h"

namespace korin::test {
namespace {

constexpr std::int64_t kGiB = std::int64_t{1} << 30;
constexpr std::int32_t kLargeBlock = 8 << 20;

class LargeImagesTest : public VmTest {
 protected:
  std::shared_ptr<CVmManagerImpl> Create(std::int64_t capacityBytes, std::int64_t limitBytes = 0) {
    return CreateCountedManager(m_usage, kLargeBlock, capacityBytes / kLargeBlock,
                                limitBytes / kLargeBlock, m_bytes.data());
  }

  Usage m_usage;
  std::vector<BYTE> m_bytes = std::vector<BYTE>(kLargeBlock);
};

TEST_F(LargeImagesTest, OneBlockOfAnySizeGoesOutAndComesBack) {
  for (const std::int64_t bytes : {3 * kGiB, 5 * kGiB, 9 * kGiB + kLargeBlock, 1024 * kGiB}) {
    const std::int64_t blocks = bytes / kLargeBlock;
    m_usage.bytesRead = m_usage.bytesWritten = 0;
    m_usage.disk.now = 0;
    const auto manager = Create(bytes + 4 * kLargeBlock, 2 * bytes);
    manager->SetAllocationPolicy(Policy::Image);
    CVmImage image(manager, 8, 4096, bytes / 4096, 1, nullptr);
    EXPECT_EQ(image.GetVmHandle()->GetBlockSize(), bytes);
    EXPECT_EQ(m_usage.memory.now, bytes);
    EXPECT_EQ(manager->GetAllocatedBlocks(), blocks);
    const BYTE* first = image.GetImageAdr(0, 0, 0, true, false, nullptr);
    if (sizeof(void*) == 8) {
      const BYTE* last = image.GetImageAdr(4095, bytes / 4096 - 1, 0, true, false, nullptr);
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(last) - reinterpret_cast<std::uintptr_t>(first),
                static_cast<std::uintptr_t>(bytes - 1));
    }
    CVmImage second(manager, 8, 4096, bytes / 4096, 1, nullptr);
    EXPECT_FALSE(second.IsOnMemory());
    EXPECT_NE(second.GetBlockOnMemory(0, true), nullptr);  // the first goes out
    EXPECT_EQ(m_usage.lastSeek, bytes);
    EXPECT_EQ(m_usage.bytesWritten, bytes);
    EXPECT_NE(image.GetBlockOnMemory(0, false), nullptr);
    EXPECT_EQ(m_usage.bytesRead, bytes);
    EXPECT_LE(m_usage.largest, kGiB);
    EXPECT_EQ(m_usage.memory.now, bytes);
    EXPECT_EQ(manager->GetDiskUsedBytes(), 2 * bytes);
    EXPECT_EQ(manager->Inspect().fault, "");
  }
}

TEST_F(LargeImagesTest, AreFilledAndMeasuredToTheLastPixel) {
  if (kPoison) GTEST_SKIP() << "blocks that are let go would be moved, one by one";
  struct Case {
    CImage::DataType type;
    int width, height, planes;
  };
  // 3 GiB in one plane, 5 GiB in three planes that begin and end inside of blocks.
  for (const auto& [type, width, height, planes] : {Case{CImage::DataTypeInt8, 65536, 49152, 1},
                                                    Case{CImage::DataTypeInt16, 32769, 27309, 3}}) {
    const std::int64_t pixels = std::int64_t{width} * height * planes;
    const auto manager = Create(6 * kGiB);
    CImage image(manager, type, width, height, planes, 1.0, 0.0, false, kSilent);
    EXPECT_EQ(image.GetImageSize(), pixels * type / 8);
    ASSERT_TRUE(image.Fill(-1, 7.0));
    // The last pixel of all, in a buffer that every block shows.
    BYTE* last = image.Store()->GetImageAdr(width - 1, height - 1, planes - 1, true, true, nullptr);
    EXPECT_EQ(*last, 7);
    image.UnlockAll();
    const auto [min, max, average] = image.GetMinMaxAvr(-1);
    EXPECT_EQ(min, 7.0);
    EXPECT_EQ(max, 7.0);
    EXPECT_EQ(average, 7.0);
    // Counts of one bin wrap at 32 bits.
    const auto histogram = image.HistogramRaw(-1, 0.0, 16.0, 16);
    std::uint32_t counted = 0;
    for (const std::int32_t count : histogram) counted += static_cast<std::uint32_t>(count);
    EXPECT_EQ(counted, static_cast<std::uint32_t>(pixels));
    EXPECT_EQ(image.GetPixel(width - 1, height - 1, planes - 1), 7.0);
    EXPECT_EQ(manager->Inspect().fault, "");
  }
}

TEST_F(LargeImagesTest, ATebibyteIsCountedAndAddressed) {
  const auto manager = Create(2048 * kGiB);
  CImage image(manager, CImage::DataTypeDouble, 1 << 18, 1 << 18, 2, 1.0, 0.0, true, kSilent);
  EXPECT_EQ(image.GetImageSize(), 1024 * kGiB);
  EXPECT_EQ(image.GetBlockCount(), 1024 * kGiB / kLargeBlock);
  EXPECT_EQ(manager->GetMemoryUsedBlocks(), 1024 * kGiB / kLargeBlock);
  const BYTE* last =
      image.Store()->GetImageAdr((1 << 18) - 1, (1 << 18) - 1, 1, false, false, nullptr);
  EXPECT_EQ(last - m_bytes.data(), kLargeBlock - 8);
  EXPECT_FALSE(image.ChangeSize(1 << 20, 1 << 20, kSilent)) << "no room for 16 TiB";
  EXPECT_EQ(image.GetImageSize(), 1024 * kGiB);

  manager->SetAllocationPolicy(Policy::Planes);
  const CVmImage planes(manager, -64, 1 << 18, 1 << 17, 2, nullptr);
  EXPECT_EQ(planes.GetBlockCount(), 2);
  EXPECT_EQ(planes.GetLineRun(1, (1 << 17) - 1).firstLine, (1 << 17) - 1);
  EXPECT_TRUE(planes.HasWholePlanes());
}

}  // namespace
}  // namespace korin::test
