// Images of gigabytes and terabytes on backends that hold nothing.
#include <limits>

#include "vm/vm_test_support.h"

namespace korin::test {
namespace {

using Policy = CVmManager::AllocationPolicy;

constexpr std::int64_t kGigabyte = std::int64_t{1} << 30;

struct Counts {
  std::int64_t memory = 0;
  std::int64_t end = 0;      // of the swap file
  std::int64_t written = 0;  // bytes
  std::int64_t read = 0;
  std::int64_t largest = 0;      // one transfer
  std::int64_t firstOffset = 0;  // of the last run of transfers
};

class CountedMemory : public CVmMemoryInterface {
 public:
  CountedMemory(Counts& counts, std::int64_t size) : m_counts(counts), m_size(size) {
    m_counts.memory += size;
  }
  ~CountedMemory() override { m_counts.memory -= m_size; }
  void* GetAddress() override { return m_bytes; }
  const void* GetAddress() const override { return m_bytes; }
  bool IsNull() const override { return false; }
  bool IsValid() const override { return true; }

 private:
  Counts& m_counts;
  std::int64_t m_size;
  alignas(16) static inline char m_bytes[16];
};

class CountedSwap : public CVmVirtualMemory {
 public:
  explicit CountedSwap(Counts& counts) : m_counts(counts) {}
  bool IsOpen() const override { return true; }
  bool Seek(std::int64_t offset) override {
    m_counts.firstOffset = offset;
    return true;
  }
  bool Truncate(std::int64_t end) override {
    EXPECT_GE(end, m_counts.end);
    m_counts.end = end;
    return true;
  }
  bool Read(void*, std::int64_t size) override {
    m_counts.read += size;
    m_counts.largest = std::max(m_counts.largest, size);
    return true;
  }
  bool Write(const void*, std::int64_t size) override {
    m_counts.written += size;
    m_counts.largest = std::max(m_counts.largest, size);
    return true;
  }
  std::wstring GetPath() const override { return {}; }

 private:
  Counts& m_counts;
};

class LargeSizesTest : public VmTest {
 protected:
  std::shared_ptr<CVmManagerImpl> Create(std::int64_t capacity, std::int64_t limit) {
    vm::ManagerSeams seams;
    seams.memory = [this](std::int64_t size) {
      return std::make_unique<CountedMemory>(m_counts, size);
    };
    seams.swap = [this](const std::filesystem::path&) {
      return std::make_unique<CountedSwap>(m_counts);
    };
    return CreateManagerForTest(262144, capacity, limit, seams);
  }

  Counts m_counts;
};

TEST_F(LargeSizesTest, OneBlockOfAnySizeGoesOutAndComesBack) {
  for (const std::int64_t bytes :
       {3 * kGigabyte, 5 * kGigabyte, 9 * kGigabyte + 4096, 1024 * kGigabyte}) {
    const std::int64_t blocks = (bytes + 262143) / 262144;
    m_counts = {};
    const auto manager = Create(blocks + 4, 2 * blocks);
    manager->SetAllocationPolicy(Policy::Image);
    // Lines of 4096 bytes.
    CVmImage image(manager, 8, 4096, bytes / 4096, 1, nullptr);
    EXPECT_EQ(image.GetVmHandle()->GetBlockSize(), bytes);
    EXPECT_EQ(m_counts.memory, bytes);
    EXPECT_EQ(manager->GetMemoryUsedBlocks(), blocks);
    EXPECT_EQ(manager->GetAllocatedBlocks(), blocks);
    if (sizeof(void*) == 8) {
      const BYTE* first = image.GetImageAdr(0, 0, 0, true, false, nullptr);
      const BYTE* last = image.GetImageAdr(4095, bytes / 4096 - 1, 0, true, false, nullptr);
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(last) - reinterpret_cast<std::uintptr_t>(first),
                static_cast<std::uintptr_t>(bytes - 1));
    }
    CVmImage second(manager, 8, 4096, bytes / 4096, 1, nullptr);
    EXPECT_FALSE(second.IsOnMemory());
    EXPECT_EQ(m_counts.end, blocks * 262144);
    EXPECT_NE(second.GetBlockOnMemory(0, true), nullptr);  // the first goes out
    EXPECT_EQ(m_counts.firstOffset, blocks * 262144);
    EXPECT_EQ(m_counts.written, bytes);
    EXPECT_EQ(m_counts.memory, bytes);
    EXPECT_NE(image.GetBlockOnMemory(0, false), nullptr);
    EXPECT_EQ(m_counts.read, bytes);
    EXPECT_LE(m_counts.largest, kGigabyte);
    EXPECT_EQ(manager->GetDiskUsedBytes(), 2 * blocks * 262144);
    EXPECT_EQ(manager->Inspect().fault, "");
  }
}

TEST_F(LargeSizesTest, PlanesAndBlocksBeyondFourGigabytes) {
  const auto manager = Create(std::int64_t{1} << 40, 0);
  manager->SetAllocationPolicy(Policy::Planes);
  {
    // 20000 x 20000 doubles in three planes.
    CVmImage image(manager, -64, 20000, 20000, 3, nullptr);
    EXPECT_EQ(image.GetBlockCount(), 3);
    EXPECT_EQ(m_counts.memory, 9600000000);
    EXPECT_EQ(image.GetLineRun(2, 19999).firstLine, 19999);
    EXPECT_TRUE(image.HasWholePlanes());
  }
  manager->SetAllocationPolicy(Policy::Blocks);
  CVmImage wide(manager, 8, 262144, 1 << 18, 1, nullptr);  // 64 GiB
  EXPECT_EQ(wide.GetBlockCount(), 1 << 18);
  EXPECT_EQ(m_counts.memory, 64 * kGigabyte);
  EXPECT_NE(wide.GetImageAdr(262143, (1 << 18) - 1, 0, true, false, nullptr), nullptr);
}

}  // namespace
}  // namespace korin::test
