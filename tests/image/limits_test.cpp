// What limits promise: blocks never take more memory than the budget nor more disk
// than the limit, by the count of the backends themselves, and what does not fit says
// so with figures.
#include <atomic>

#include "image/image_fixture.h"
#include "korinimage/exceptions.h"
#include "vm/vm_test_support.h"

namespace korin::test {
namespace {

// Bytes now, and the most there ever were.
struct Watermark {
  std::atomic<std::int64_t> now{0};
  std::atomic<std::int64_t> most{0};
  void Add(std::int64_t bytes) {
    const std::int64_t after = now += bytes;
    std::int64_t former = most;
    while (former < after && !most.compare_exchange_weak(former, after)) {
    }
  }
};

class CountedMemory : public CVmMemoryInterface {
 public:
  CountedMemory(Watermark& level, std::int64_t size)
      : m_level(level), m_size(size), m_memory(Alloc(size)) {
    m_level.Add(m_size);
  }
  ~CountedMemory() override { m_level.Add(-m_size); }
  void* GetAddress() override { return m_memory->GetAddress(); }
  const void* GetAddress() const override { return m_memory->GetAddress(); }
  bool IsNull() const override { return m_memory->IsNull(); }
  bool IsValid() const override { return m_memory->IsValid(); }

 private:
  Watermark& m_level;
  std::int64_t m_size;
  std::unique_ptr<CVmMemoryInterface> m_memory;
};

// A swap file in memory that knows how far it was ever asked to reach.
class CountedSwap : public CVmVirtualMemory {
 public:
  explicit CountedSwap(Watermark& level) : m_level(level) {}
  bool IsOpen() const override { return true; }
  bool Seek(std::int64_t offset) override {
    m_at = static_cast<std::size_t>(offset);
    return true;
  }
  bool Truncate(std::int64_t end) override {
    m_level.Add(end - static_cast<std::int64_t>(m_bytes.size()));
    m_bytes.resize(static_cast<std::size_t>(end));
    return true;
  }
  bool Read(void* buffer, std::int64_t size) override { return Move(buffer, size, false); }
  bool Write(const void* buffer, std::int64_t size) override {
    return Move(const_cast<void*>(buffer), size, true);
  }
  std::wstring GetPath() const override { return {}; }

 private:
  bool Move(void* buffer, std::int64_t size, bool write) {
    const auto count = static_cast<std::size_t>(size);
    EXPECT_LE(m_at + count, m_bytes.size()) << "beyond the end of the file";
    if (m_at + count > m_bytes.size()) return false;
    write ? std::memcpy(m_bytes.data() + m_at, buffer, count)
          : std::memcpy(buffer, m_bytes.data() + m_at, count);
    m_at += count;
    return true;
  }

  Watermark& m_level;
  std::vector<char> m_bytes;
  std::size_t m_at = 0;
};

struct Limits {
  const char* name;
  std::int32_t blockSize;
  std::int64_t budget;  // blocks
  std::int64_t disk;    // blocks
  Policy policy;
};

void PrintTo(const Limits& limits, std::ostream* out) { *out << limits.name; }

class LimitsTest : public VmTest, public testing::WithParamInterface<Limits> {
 protected:
  LimitsTest() {
    const Limits& limits = GetParam();
    vm::ManagerSeams seams;
    seams.memory = [this](std::int64_t size) {
      return std::make_unique<CountedMemory>(m_memory, size);
    };
    seams.swap = [this](const std::filesystem::path&) {
      return std::make_unique<CountedSwap>(m_disk);
    };
    m_manager = CreateManagerForTest(limits.blockSize, limits.budget, limits.disk, seams);
    m_manager->SetAllocationPolicy(limits.policy);
  }
  ~LimitsTest() override { SetThreadCount(0); }

  Watermark m_memory;
  Watermark m_disk;
  std::shared_ptr<CVmManagerImpl> m_manager;
};

// Images come until nothing fits any more, are worked on, and some go again.
TEST_P(LimitsTest, AreKeptWhateverIsAskedFor) {
  const Limits& limits = GetParam();
  const std::int64_t memory = limits.budget * limits.blockSize;
  const std::int64_t disk = limits.disk * limits.blockSize;
  const Shape shape{100, 60, 2};
  const auto pixels = RandomPixels<std::int16_t>(shape);
  const double sum = [&] {
    double total = 0;
    for (const auto pixel : pixels) total += pixel;
    return total / static_cast<double>(pixels.size());
  }();
  int refused = 0;
  std::vector<CImage> images;
  for (int round = 0; round < 40; ++round) {
    if (round % 7 == 6 && !images.empty()) images.erase(images.begin());
    try {
      CImage image = MakeImage(m_manager, shape, pixels);
      images.push_back(std::move(image));
      if (round % 3 == 0) images.front().ScalingAppliedImage();
    } catch (const CVmMemoryAllocationError& error) {
      ++refused;
      const AllocationFigures& figures = error.Figures();
      const std::string what = error.what();
      EXPECT_GT(figures.requested, 0) << what;
      EXPECT_GE(figures.used, 0) << what;
      EXPECT_GE(figures.allowed, figures.used) << what;
      EXPECT_GT(figures.used + figures.requested, figures.allowed) << what;
      for (const std::int64_t figure : {figures.requested, figures.used, figures.allowed}) {
        EXPECT_NE(what.find(std::to_string(figure)), std::string::npos) << what;
      }
    }
    if (!images.empty() && round % 5 == 0) {
      EXPECT_NEAR(images.back().GetAverageRaw(-1), sum, 1e-6);
    }
    ASSERT_EQ(m_manager->Inspect().fault, "");
  }
  EXPECT_GT(refused, 0);
  for (CImage& image : images) EXPECT_TRUE(ReadPixels<std::int16_t>(image) == pixels);
  if (!kPoison) {
    EXPECT_LE(m_memory.most, memory);
  }
  EXPECT_LE(m_disk.most, disk);
  // With either kind of room gone for good, the other one is used up all the same.
  if (limits.disk > 0) {
    EXPECT_GT(m_disk.most, 0);
  }
  images.clear();
  EXPECT_EQ(m_manager->GetAllocatedBlocks(), 0);
  if (!kPoison) {
    EXPECT_EQ(m_memory.now, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(All, LimitsTest,
                         testing::Values(Limits{"Usual", 4096, 8, 60, Policy::Blocks},
                                         Limits{"OneBlock", 4096, 1, 60, Policy::Blocks},
                                         Limits{"NoDisk", 4096, 30, 0, Policy::Blocks},
                                         Limits{"OddBlocks", 1001, 11, 170, Policy::Blocks},
                                         Limits{"SmallerThanAPage", 333, 40, 500, Policy::Blocks},
                                         Limits{"Planes", 4096, 16, 60, Policy::Planes},
                                         Limits{"OddPlanes", 1001, 70, 200, Policy::Planes},
                                         Limits{"WholeImages", 1001, 100, 120, Policy::Image}),
                         [](const auto& test) { return test.param.name; });

class NoBudgetTest : public VmTest {};

// A budget of less than one block: allocation goes to the swap file, where there is
// one, and using a block is an error that names the figures.
TEST_F(NoBudgetTest, IsAnErrorWithFigures) {
  for (const std::int64_t budget : {0, 1000}) {
    for (const std::int64_t disk : {0, 50}) {
      vm::ManagerSeams seams;
      seams.budgetBytes = budget;
      seams.diskLimitBlocks = disk;
      auto configuration = CVmManagerConfiguration::DefaultConfiguration();
      configuration->BlockSize = kBlock;
      const auto manager =
          std::make_shared<CVmManagerImpl>(std::move(configuration), std::move(seams));
      EXPECT_EQ(manager->GetMemoryCapacityBlocks(), 0);
      EXPECT_EQ(manager->GetComfortableBlocks(), 1);
      try {
        CImage image(manager, CImage::DataTypeInt8, 100, 100, 1, 1.0, 0.0, false,
                     CImage::ProgressPtr());
        EXPECT_GT(disk, 0);
        image.Fill(0, 1.0);
        ADD_FAILURE() << "no block can be in memory";
      } catch (const CVmMemoryAllocationError& error) {
        EXPECT_EQ(error.Figures().requested, kBlock) << error.what();
        EXPECT_EQ(error.Figures().used, 0) << error.what();
        EXPECT_EQ(error.Figures().allowed, 0) << error.what();
        EXPECT_NE(std::string(error.what()).find(disk > 0 ? "MinMemorySize" : "MaxDiskSize"),
                  std::string::npos)
            << error.what();
      }
      EXPECT_EQ(manager->Inspect().fault, "");
      EXPECT_EQ(manager->GetAllocatedBlocks(), 0);
    }
  }
}

}  // namespace
}  // namespace korin::test
