// What single calls of a manager answer.
#include <array>
#include <vector>

#include "korinimage/exceptions.h"
#include "support/recording_progress.h"
#include "vm/counting_backends.h"

namespace korin::test {
namespace {

class ManagerTest : public VmTest {};

TEST_F(ManagerTest, LayoutsFollowThePolicy) {
  const auto manager = CreateManagerForTest(262144, 4, 100);
  EXPECT_EQ(manager->GetAllocationPolicy(), Policy::Blocks);
  EXPECT_EQ(manager->GetLinesPerBlock(1000, 1000, 3), 262);
  EXPECT_EQ(manager->GetBlockCountFor(1000, 1000, 3), 12);
  EXPECT_EQ(manager->GetLinesPerBlock(262145, 10, 1), 0);
  EXPECT_EQ(manager->GetBlockCountFor(262145, 10, 1), 0);
  std::shared_ptr<CVmHandle> handle;
  manager->AllocImageHandle(handle, 262145, 10, 1, nullptr);
  EXPECT_EQ(handle, nullptr);

  struct {
    Policy policy;
    std::int64_t lines, count, bytes;
  } const cases[] = {{Policy::Blocks, 262, 12, 262144},
                     {Policy::Planes, 1000, 3, 1000 * 1000},
                     {Policy::Image, 3000, 1, 3000 * 1000}};
  for (const auto& c : cases) {
    manager->SetAllocationPolicy(c.policy);
    EXPECT_EQ(manager->GetLinesPerBlock(1000, 1000, 3), c.lines);
    EXPECT_EQ(manager->GetBlockCountFor(1000, 1000, 3), c.count);
    manager->AllocImageHandle(handle, 1000, 1000, 3, nullptr);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(handle->GetBlockCount(), c.count);
    EXPECT_EQ(handle->GetBlockSize(), c.bytes);
    const std::int64_t blocks = (c.bytes + 262143) / 262144 * c.count;  // rounded up
    EXPECT_EQ(manager->GetAllocatedBlocks(), blocks);
    manager->ReleaseHandle(handle);
    EXPECT_EQ(manager->GetAllocatedBlocks(), 0);

    // No bytes: a handle without blocks.
    for (const auto [l, h, p] : {std::array<std::int64_t, 3>{0, 5, 2}, {9, 0, 2}, {9, 5, 0}}) {
      EXPECT_EQ(manager->GetLinesPerBlock(l, h, p), std::max<std::int64_t>(h, 1));
      EXPECT_EQ(manager->GetBlockCountFor(l, h, p), 0);
      manager->AllocImageHandle(handle, l, h, p, nullptr);
      ASSERT_NE(handle, nullptr);
      EXPECT_EQ(handle->GetBlockCount(), 0);
      EXPECT_TRUE(manager->IsOnMemory(handle));
      manager->ReleaseHandle(handle);
    }
    for (const auto [l, h, p] : {std::array<std::int64_t, 3>{-1, 5, 2},
                                 {9, -5, 2},
                                 {9, 5, -1},
                                 {1LL << 40, 1 << 20, 64}}) {
      EXPECT_THROW(manager->GetLinesPerBlock(l, h, p), CVmMemoryAllocationError);
      EXPECT_THROW(manager->GetBlockCountFor(l, h, p), CVmMemoryAllocationError);
      EXPECT_THROW(manager->AllocImageHandle(handle, l, h, p, nullptr), CVmMemoryAllocationError);
    }
  }
  manager->SetAllocationPolicy(static_cast<Policy>(3));
  EXPECT_THROW(manager->GetLinesPerBlock(1, 1, 1), CVmMemoryAllocationError);
  EXPECT_THROW(manager->AllocImageHandle(handle, 1, 1, 1, nullptr), std::bad_alloc);
}

TEST_F(ManagerTest, HandlesRefuseImpossibleCounts) {
  EXPECT_THROW(CVmHandle(1, 268435456, nullptr), std::length_error);
  EXPECT_THROW(CVmHandle(1, -1, nullptr), std::length_error);
  EXPECT_THROW(CVmHandle(-1, 1, nullptr), std::length_error);
  const auto manager = CreateManagerForTest(kBlock, 4, 4);
  std::shared_ptr<CVmHandle> handle;
  EXPECT_THROW(manager->AllocHandle(handle, 1, 268435456, nullptr), std::length_error);
  manager->AllocHandle(handle, INT64_MAX, 1 << 20, nullptr);
  EXPECT_EQ(handle, nullptr);
  manager->AllocHandle(handle, 0, 1, nullptr);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(manager->Inspect().fault, "");
}

TEST_F(ManagerTest, OnlyHandlesOfThisManagerAreTaken) {
  const auto manager = CreateManagerForTest(kBlock, 4, 4);
  const auto other = CreateManagerForTest(kBlock, 4, 4);
  std::shared_ptr<CVmHandle> handle, foreign;
  manager->AllocHandle(handle, 2, nullptr);
  other->AllocHandle(foreign, 2, nullptr);
  auto copy = std::make_shared<CVmHandle>(*handle);
  EXPECT_EQ(copy->GetType(0), CVmBlock::Type::Memory);
  for (const auto& wrong : {copy, foreign, std::shared_ptr<CVmHandle>()}) {
    EXPECT_EQ(manager->GetBlockAddress(wrong, 0, true), nullptr);
    EXPECT_EQ(manager->MapBlock(wrong, 0, true, BlockIntent::Write), nullptr);
    EXPECT_FALSE(manager->LockBlock(wrong, true, 0));
    EXPECT_FALSE(manager->MakeRoom(wrong));
    EXPECT_TRUE(manager->IsOnMemory(wrong));
    manager->UnlockAll(wrong);
    manager->UnmapBlock(wrong, 0);
  }
  for (const std::int64_t index : {-1, 2, 99}) {
    EXPECT_EQ(manager->GetBlockAddress(handle, index, true), nullptr);
    EXPECT_FALSE(manager->LockBlock(handle, true, index));
  }
  EXPECT_EQ(copy->VmManager(), manager);
  manager->ReleaseHandle(copy);
  EXPECT_EQ(copy, nullptr);
  EXPECT_EQ(manager->GetAllocatedBlocks(), 2);
  const auto kept = handle;
  manager->ReleaseHandle(handle);
  EXPECT_TRUE(kept->Deleted());
  auto again = kept;
  manager->ReleaseHandle(again);
  EXPECT_EQ(manager->GetAllocatedBlocks(), 0);
  EXPECT_EQ(manager->Inspect().fault, "");
}

TEST_F(ManagerTest, AHandleOutlivesItsManager) {
  std::shared_ptr<CVmHandle> handle;
  {
    const auto manager = CreateManagerForTest(kBlock, 1, 4);
    manager->AllocHandle(handle, 3, nullptr);
    EXPECT_FALSE(handle->Deleted());
  }
  EXPECT_TRUE(handle->Deleted());
  EXPECT_EQ(handle->VmManager(), nullptr);
}

// A sink may use the manager, even evict what is being placed.
class BusySink : public RecordingProgress {
 public:
  explicit BusySink(std::shared_ptr<CVmManagerImpl> manager) : m_manager(std::move(manager)) {}
  void update(int percent) override {
    RecordingProgress::update(percent);
    std::shared_ptr<CVmHandle> handle;
    m_manager->AllocHandle(handle, 1, nullptr);
    if (handle) m_manager->MakeRoom(handle);
    m_manager->ReleaseHandle(handle);
  }

 private:
  std::shared_ptr<CVmManagerImpl> m_manager;
};

TEST_F(ManagerTest, ASinkThatThrowsOrWorksLeavesNothingBehind) {
  const auto manager = CreateManagerForTest(kBlock, 3, 12);
  std::shared_ptr<CVmHandle> resident;
  manager->AllocHandle(resident, 2, nullptr);
  for (int at = 0; at < 4; ++at) {
    const auto sink = std::make_shared<RecordingProgress>();
    sink->throwAt = at;
    std::shared_ptr<CVmHandle> handle;
    EXPECT_THROW(manager->AllocHandle(handle, 4, sink), SinkError);
    EXPECT_EQ(handle, nullptr);
    const auto figures = manager->Inspect();
    EXPECT_EQ(figures.fault, "");
    EXPECT_EQ(figures.allocated, 2);
    EXPECT_EQ(figures.memoryUsed, 2);
    // What the file grew by waits in the list.
    EXPECT_EQ(static_cast<std::int64_t>(figures.freeExtents.size()), figures.swapUsed);
  }
  std::shared_ptr<CVmHandle> handle;
  manager->AllocHandle(handle, 4, std::make_shared<BusySink>(manager));
  ASSERT_NE(handle, nullptr);
  for (std::int64_t i = 0; i < 4; ++i) {
    const BYTE* block = manager->GetBlockAddress(handle, i, false);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block[kBlock - 1], 0);
  }
  EXPECT_EQ(manager->Inspect().fault, "");
}

TEST_F(ManagerTest, CleanBlocksAreNotWrittenAndOverwrittenOnesNotRead) {
  Usage usage;
  vm::ManagerSeams seams;
  seams.swap = [&](const std::filesystem::path&) {
    return std::make_unique<CountedSwap>(usage, true);
  };
  const auto manager = CreateManagerForTest(kBlock, 2, 20, seams);
  std::shared_ptr<CVmHandle> handle;
  manager->AllocHandle(handle, 6, nullptr);
  const auto pass = [&](BlockIntent intent, bool flag) {
    usage.reads = usage.writes = 0;
    for (std::int64_t i = 0; i < 6; ++i) {
      BYTE* block = manager->MapBlock(handle, i, flag, intent);
      if (intent != BlockIntent::Read) std::fill(block, block + kBlock, static_cast<BYTE>(i));
      EXPECT_EQ(block[100], static_cast<BYTE>(i));
      manager->UnmapBlock(handle, i);
    }
    return std::pair(usage.reads, usage.writes);
  };
  EXPECT_EQ(pass(BlockIntent::Overwrite, false).first, 0);
  pass(BlockIntent::Read, true);  // flushes; the flag is not what counts
  EXPECT_EQ(pass(BlockIntent::Read, true), std::pair(6, 0));
  EXPECT_EQ(pass(BlockIntent::Write, false), std::pair(6, 4));
  EXPECT_EQ(pass(BlockIntent::Overwrite, false), std::pair(0, 6));
  EXPECT_EQ(pass(BlockIntent::Read, false), std::pair(6, 2));

  // New blocks are zeros whatever memory they get; untouched ones go without a transfer.
  manager->ReleaseHandle(handle);
  manager->AllocHandle(handle, 6, nullptr);
  usage.reads = usage.writes = 0;
  for (const std::int64_t i : {2, 3, 0, 1, 4, 5}) {
    const BYTE* block = manager->GetBlockAddress(handle, i, false);
    EXPECT_EQ(std::count(block, block + kBlock, BYTE{0}), kBlock) << i;
  }
  EXPECT_EQ(std::pair(usage.reads, usage.writes), std::pair(0, 0));
  manager->ReleaseHandle(handle);
  manager->AllocHandle(handle, 2, nullptr);
  for (const std::int64_t i : {0, 1}) EXPECT_EQ(manager->GetBlockAddress(handle, i, true)[9], 0);
}

TEST_F(ManagerTest, ABudgetBelowOneBlockIsAnErrorThatNamesIt) {
  for (const std::int64_t budget : {std::int64_t{0}, std::int64_t{1000}, std::int64_t{kBlock}}) {
    vm::ManagerSeams seams;
    seams.budgetBytes = budget;
    seams.diskLimitBlocks = 10;
    auto configuration = CVmManagerConfiguration::DefaultConfiguration();
    configuration->BlockSize = kBlock;
    const auto manager = std::make_shared<CVmManagerImpl>(std::move(configuration), seams);
    EXPECT_EQ(manager->GetComfortableBlocks(), 1);
    manager->SetAllocationPolicy(Policy::Image);
    CVmImage image(manager, 8, kBlock, 2, 1, nullptr);  // two manager blocks
    EXPECT_FALSE(image.IsOnMemory());
    EXPECT_EQ(image.GetBlockOnMemory(0, true), nullptr);
    EXPECT_FALSE(image.PinBlock(0, BlockIntent::Read));
    try {
      image.GetImageAdr(0, 0, 0, true, true, nullptr);
      ADD_FAILURE() << "there was no room";
    } catch (const CVmMemoryAllocationError& error) {
      EXPECT_EQ(error.Figures().requested, 2 * kBlock);
      EXPECT_EQ(error.Figures().used, 0);
      EXPECT_EQ(error.Figures().allowed, budget / kBlock * kBlock);
      EXPECT_NE(std::string(error.what()).find("8192"), std::string::npos);
      EXPECT_NE(std::string(error.what()).find("MinMemorySize"), std::string::npos);
    }
  }
  // The same for the limit of the swap file, reached to the block.
  const auto full = CreateManagerForTest(kBlock, 1, 2);
  const CVmImage all(full, 8, kBlock, 3, 1, nullptr);
  try {
    const CVmImage more(full, 8, kBlock, 1, 1, nullptr);
    ADD_FAILURE() << "there was no room";
  } catch (const CVmMemoryAllocationError& error) {
    EXPECT_EQ(error.Figures().allowed, 2 * kBlock);
    EXPECT_NE(std::string(error.what()).find("MaxDiskSize"), std::string::npos);
  }
}

TEST_F(ManagerTest, AnUnreadableBlockIsNamedAndStaysWhereItIs) {
  const auto manager = CreateManagerForTest(kBlock, 1, 4);
  CVmImage image(manager, 8, kBlock, 2, 1, nullptr);
  ASSERT_TRUE(FillPattern(image, 1));  // the second block pushes the first out
  {
    const FaultAt at(1, platform::Fault::kIoError, true, {platform::Call::kReadFile});
    try {
      image.GetImageAdr(0, 0, 0, false, false, nullptr);
      ADD_FAILURE() << "the block could not be read";
    } catch (const CVmMemoryAllocationError& error) {
      EXPECT_NE(std::string(error.what()).find("~QV"), std::string::npos) << error.what();
    }
    EXPECT_EQ(image.GetVmHandle()->GetType(0), CVmBlock::Type::Swap);
  }
  EXPECT_TRUE(HasPattern(image, 1));
  EXPECT_EQ(manager->Inspect().fault, "");
}

}  // namespace
}  // namespace korin::test
