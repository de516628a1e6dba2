#include "korinimage/vm_image.h"

#include <cstring>
#include <vector>

#include "korinimage/exceptions.h"
#include "support/recording_progress.h"
#include "vm/noting_manager.h"
#include "vm/vm_test_support.h"

namespace korin::test {
namespace {

using Calls = NotingManager::Calls;

class VmImageTest : public VmTest {};

TEST_F(VmImageTest, LayoutIsThatOfWholeLines) {
  const auto manager = CreateManagerForTest(262144, 20, 20);
  const CVmImage image(manager, 8, 1000, 1000, 3, nullptr);
  EXPECT_EQ(image.GetBytesPerLine(), 1000);
  EXPECT_EQ(image.GetLinesPerBlock(), 262);
  EXPECT_EQ(image.GetBlockCount(), 12);
  EXPECT_EQ(image.GetBlockLineCount(11), 118);
  EXPECT_EQ(image.GetBlockLineCount(12), -144);
  EXPECT_EQ(image.GetBlockShape(), std::make_tuple(1000, 262));
  EXPECT_FALSE(image.HasWholePlanes());
  const CVmImage small(manager, 16, 10, 5, 3, nullptr);
  EXPECT_EQ(small.GetBlockShape(), std::make_tuple(10, 15));
  EXPECT_TRUE(small.HasWholePlanes());
  for (const auto& [bits, bytes] :
       {std::pair(-32, 4), {32, 4}, {8, 1}, {12, 1}, {-64, 8}, {7, 0}, {0, 0}}) {
    EXPECT_EQ(CVmImage(manager, bits, 3, 2, 1, nullptr).GetBytesPixel(), bytes) << bits;
  }
  // Runs of one plane cover it without a gap.
  for (std::int64_t plane = 0; plane < 3; ++plane) {
    for (std::int64_t y = 0; y < 1000;) {
      const auto run = image.GetLineRun(plane, y);
      EXPECT_EQ(run.block * 262 + run.firstLine, plane * 1000 + y);
      EXPECT_GT(run.lines, 0);
      EXPECT_LE(run.firstLine + run.lines, image.GetBlockLineCount(run.block));
      y += run.lines;
      EXPECT_LE(y, 1000);
    }
  }
  const CVmImage none(manager, 8, 0, 7, 2, nullptr);
  EXPECT_EQ(none.GetBlockCount(), 0);
  EXPECT_TRUE(none.IsOnMemory());
}

TEST_F(VmImageTest, ImpossibleShapesSayWhy) {
  const auto manager = CreateManagerForTest(kBlock, 2, 2);
  const auto make = [&](const std::shared_ptr<CVmManager>& m, std::int64_t bits, std::int64_t w,
                        std::int64_t h, std::int64_t p) {
    return StderrOf(
        [&] { EXPECT_THROW(CVmImage(m, bits, w, h, p, nullptr), CVmMemoryAllocationError); });
  };
  EXPECT_EQ(make(manager, 8, kBlock + 1, 1, 1), "m_nLinesPerBlock(0) <= 0\n");
  EXPECT_EQ(make(nullptr, 8, 1, 1, 1), "m_VmHandle is nullptr\n");
  EXPECT_EQ(make(manager, 8, kBlock, 5, 1), "m_VmHandle is nullptr\n");  // no room
  make(manager, 8, -1, 1, 1);
  make(manager, 64, INT64_MAX / 4, 1, 1);
  make(manager, INT64_MIN, INT64_MAX, INT64_MAX, INT64_MAX);
  make(manager, 8, 1, 1LL << 40, 1LL << 40);
  make(manager, 8, 1, -1, 1);
  make(manager, 8, 100, 1LL << 50, 1);  // more blocks than a handle takes
  EXPECT_EQ(manager->Inspect().fault, "");
  EXPECT_EQ(manager->Inspect().handles, 0);
}

TEST_F(VmImageTest, PixelAddressesLieWhereTheLayoutSays) {
  const auto manager = CreateManagerForTest(kBlock, 2, 40);
  CVmImage image(manager, 16, 100, 50, 3, nullptr);  // 20 lines a block
  for (std::int64_t p = 0; p < 3; ++p) {
    for (std::int64_t y = 0; y < 50; ++y) {
      for (const std::int64_t x : {0, 42, 99}) {
        const std::int64_t value = (p * 50 + y) * 100 + x;
        const auto pixel = static_cast<std::int16_t>(value);
        std::memcpy(image.GetImageAdr(x, y, p, true, false, nullptr), &pixel, 2);
      }
    }
  }
  for (std::int64_t block = 0; block < image.GetBlockCount(); ++block) {
    const BYTE* address = image.GetBlockOnMemory(block, false);
    for (std::int64_t line = 0; line < image.GetBlockLineCount(block); ++line) {
      std::int16_t pixel;
      std::memcpy(&pixel, address + line * 200 + 42 * 2, 2);
      EXPECT_EQ(pixel, static_cast<std::int16_t>((block * 20 + line) * 100 + 42));
    }
  }
  // A column past the width is a pixel of the next line, as long as there is one.
  std::int16_t pixel;
  std::memcpy(&pixel, image.GetImageAdr(142, 0, 0, false, false, nullptr), 2);
  EXPECT_EQ(pixel, 142);
  std::memcpy(&pixel, image.GetImageAdr(-58, 1, 0, false, false, nullptr), 2);
  EXPECT_EQ(pixel, 42);
  struct {
    std::int64_t x, y, plane;
  } const outside[] = {{0, -1, 0},        {0, 0, -1},        {0, 0, 3},         {0, 50, 2},
                       {100, 49, 2},      {-1, 0, 0},        {INT64_MAX, 0, 0}, {INT64_MIN, 0, 0},
                       {0, INT64_MAX, 0}, {0, INT64_MIN, 0}, {0, 0, INT64_MAX}, {0, 0, INT64_MIN}};
  for (const auto& at : outside) {
    EXPECT_THROW(image.GetImageAdr(at.x, at.y, at.plane, false, false, nullptr),
                 CVmMemoryAllocationError);
  }
  EXPECT_EQ(image.GetBlockOnMemory(-1, false), nullptr);
  EXPECT_EQ(image.GetBlockOnMemory(8, false), nullptr);
  EXPECT_FALSE(image.PinBlock(8, BlockIntent::Read));
}

TEST_F(VmImageTest, LockedPixelsStayUntilUnlocked) {
  const auto manager = CreateManagerForTest(kBlock, 2, 40);
  CVmImage image(manager, 8, kBlock, 4, 1, nullptr);
  for (const bool parallel : {true, false}) {
    image.SetParallel(parallel);
    CVmImage::AddressHandle first, second;
    EXPECT_FALSE(image.Unlock(first));
    BYTE* pixel = image.GetImageAdr(7, 0, 0, true, true, &first);
    *pixel = 99;
    image.GetImageAdr(0, 1, 0, true, true, &second);
    EXPECT_EQ(second.m_nBlock, 1);
    EXPECT_THROW(image.GetImageAdr(0, 2, 0, false, false, nullptr), CVmMemoryAllocationError);
    EXPECT_TRUE(image.Unlock(second));
    EXPECT_NE(image.GetImageAdr(0, 2, 0, false, false, nullptr), nullptr);
    EXPECT_EQ(*pixel, 99);
    image.UnlockAll();
    for (std::int64_t y = 1; y < 4; ++y) image.GetImageAdr(0, y, 0, false, false, nullptr);
    EXPECT_FALSE(image.Unlock(first));  // evicted
    EXPECT_EQ(*image.GetImageAdr(7, 0, 0, false, false, nullptr), 99);
  }
}

TEST_F(VmImageTest, StoresWithoutAManagerRefuseAndStaySilent) {
  CVmImage empty;
  std::unique_ptr<CVmImage> orphan;
  {
    const auto manager = CreateManagerForTest(kBlock, 2, 4);
    orphan = std::make_unique<CVmImage>(manager, 8, 10, 10, 1, nullptr);
    const BlockGuard guard = orphan->PinBlock(0, BlockIntent::Write);
    EXPECT_TRUE(guard);
  }
  for (CVmImage* image : {&empty, orphan.get()}) {
    EXPECT_THROW(image->GetBlockOnMemory(0, false), CVmManagerHandleDeletedError);
    EXPECT_THROW(image->PinBlock(0, BlockIntent::Read), CVmManagerHandleDeletedError);
    EXPECT_THROW(image->GetImageAdr(0, 0, 0, false, true, nullptr), CVmManagerHandleDeletedError);
    EXPECT_THROW(image->GetAllocationPolicy(), CVmManagerHandleDeletedError);
    EXPECT_THROW(CVmImage(*image, nullptr), CVmManagerHandleDeletedError);
    EXPECT_FALSE(image->Unlock({0}));
    image->UnlockAll();
    EXPECT_TRUE(image->IsOnMemory());
    EXPECT_EQ(image->VmManager(), nullptr);
  }
}

TEST_F(VmImageTest, AGuardKeepsTheManagerUntilItIsGone) {
  auto manager = CreateManagerForTest(kBlock, 2, 4);
  const std::weak_ptr<CVmManagerImpl> watch = manager;
  CVmImage image(manager, 8, 10, 10, 1, nullptr);
  BlockGuard moved;
  {
    BlockGuard guard = image.PinBlock(0, BlockIntent::Write);
    manager.reset();
    EXPECT_FALSE(watch.expired());
    moved = std::move(guard);
    EXPECT_FALSE(guard);
  }
  moved.Address()[0] = 1;
  moved.Release();
  EXPECT_TRUE(watch.expired());
}

TEST_F(VmImageTest, CopyMakesTheStatedCallsAndReports) {
  const auto manager = std::make_shared<NotingManager>(CreateManagerForTest(kBlock, 8, 40));
  CVmImage source(manager, 8, kBlock, 4, 1, nullptr);
  CVmImage target(manager, 8, 20, 20, 1, nullptr);
  manager->calls.clear();
  const auto sink = std::make_shared<RecordingProgress>();
  target.CopyImage(source, sink);
  EXPECT_EQ(manager->calls, (Calls{"image handle", "release 1", "get 0:0 true", "get 2:0 false",
                                   "get 0:1 true", "get 2:1 false", "get 0:2 true", "get 2:2 false",
                                   "get 0:3 true", "get 2:3 false"}));
  EXPECT_EQ(sink->calls, (Calls{"update 25", "update 50", "update 75", "update 100", "initialize",
                                "update 50", "update 75", "update 100", "update 125", "finalize"}));
  manager->calls.clear();
  target.CopyImage(target, sink);
  EXPECT_TRUE(manager->calls.empty());

  manager->calls.clear();
  manager->refuseLocks = true;
  EXPECT_THROW(source.GetImageAdr(0, 1, 0, true, true, nullptr), CVmMemoryAllocationError);
  EXPECT_EQ(manager->calls, (Calls{"get 0:1 true", "lock 1"}));

  // Either block of a pair that cannot come ends the copy with an empty store, before
  // the sink is told.
  struct EndSink : RecordingProgress {
    explicit EndSink(const Calls& seen) : paging(seen) {}
    void finalize() override {
      RecordingProgress::finalize();
      before = paging.back();
    }
    const Calls& paging;
    std::string before;  // the last paging call before the end
  };
  for (const int at : {0, 1, 5}) {
    const auto failing = std::make_shared<EndSink>(manager->calls);
    manager->failAt = at;
    EXPECT_THROW(target.CopyImage(source, failing), CVmMemoryAllocationError);
    EXPECT_EQ(target.GetVmHandle(), nullptr);
    EXPECT_EQ(target.GetWidth() + target.GetBlockCount() + target.GetBytesPerLine(), 0);
    EXPECT_EQ(failing->Count("finalize"), 1);
    EXPECT_EQ(failing->before.substr(0, 8), "release ");
  }
}

TEST_F(VmImageTest, CopyKeepsPixelsAtTheTightestBudgetAndUnderEveryPolicy) {
  for (const Policy made : {Policy::Blocks, Policy::Planes, Policy::Image}) {
    for (const Policy current : {Policy::Blocks, Policy::Planes, Policy::Image}) {
      // 30 lines of 1000 bytes in 3 planes: blocks of 4, 10 or 30 lines.
      const std::int64_t capacity = made == Policy::Blocks ? 3 : made == Policy::Planes ? 9 : 24;
      const auto manager = CreateManagerForTest(kBlock, capacity, 80);
      manager->SetAllocationPolicy(made);
      CVmImage source(manager, 8, 1000, 10, 3, nullptr);
      ASSERT_TRUE(FillPattern(source, 3));
      manager->SetAllocationPolicy(current);
      CVmImage other(manager, 8, 50, 2, 1, nullptr);
      ASSERT_TRUE(FillPattern(other, 4));
      CVmImage target(source, nullptr);
      EXPECT_EQ(target.GetLinesPerBlock(), source.GetLinesPerBlock());
      EXPECT_TRUE(HasPattern(target, 3));
      EXPECT_TRUE(HasPattern(source, 3));
      EXPECT_TRUE(HasPattern(other, 4));
      other.CopyImage(target, nullptr);
      EXPECT_TRUE(HasPattern(other, 3));
      EXPECT_EQ(manager->Inspect().fault, "");
      EXPECT_EQ(manager->Inspect().handles, 3);
      EXPECT_EQ(manager->Inspect().pins, 0);
    }
  }
}

TEST_F(VmImageTest, ASinkThatThrowsWhileCopyingEndsInAStatedState) {
  const auto manager = CreateManagerForTest(kBlock, 3, 80);
  CVmImage source(manager, 8, kBlock, 4, 1, nullptr);
  ASSERT_TRUE(FillPattern(source, 1));
  for (int at = 0; at < 10; ++at) {
    CVmImage target(manager, 8, 100, 9, 1, nullptr);
    ASSERT_TRUE(FillPattern(target, 2));
    const auto sink = std::make_shared<RecordingProgress>();
    sink->throwAt = at;
    if (at == 9) {  // what finalize throws is swallowed
      target.CopyImage(source, sink);
      EXPECT_TRUE(HasPattern(target, 1));
      continue;
    }
    EXPECT_THROW(target.CopyImage(source, sink), SinkError);
    if (at < 4) {
      EXPECT_TRUE(HasPattern(target, 2));
    } else {
      EXPECT_EQ(target.GetVmHandle(), nullptr);
    }
    EXPECT_EQ(sink->Count("finalize"), at > 4 ? 1 : 0);
    EXPECT_TRUE(HasPattern(source, 1));
    EXPECT_EQ(manager->Inspect().fault, "");
  }
}

}  // namespace
}  // namespace korin::test
