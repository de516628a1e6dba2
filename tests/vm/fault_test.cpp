// Every operation on several blocks with the n-th call to the system failing, for
// each n until it passes: what is left must be sound, what was there intact, and
// the same operation must work afterwards.
#include <functional>

#include "korinimage/exceptions.h"
#include "vm/vm_test_support.h"

namespace korin::test {
namespace {

using platform::Call;
using platform::Fault;

class FaultTest : public VmTest {
 protected:
  // A manager with room for 4 of the 9 blocks of an image.
  FaultTest() {
    vm::ManagerSeams seams;
    seams.memory = AskingMemory;
    m_manager = CreateManagerForTest(kBlock, 4, 200, seams);
    m_image = std::make_unique<CVmImage>(m_manager, 8, kBlock, 3, 3, nullptr);
    EXPECT_TRUE(FillPattern(*m_image, 1));
  }

  // `run` is one operation and returns whether it worked; `check` says whether the
  // rest of the world is as it must be after a failure.
  void Loop(const std::function<bool()>& run, const std::function<void()>& check) {
    for (const Fault fault : {Fault::kNoMemory, Fault::kIoError, Fault::kShort}) {
      for (const bool stays : {false, true}) {
        int n = 1;
        for (bool passed = false; !passed && !HasFailure(); ++n) {
          SCOPED_TRACE("call " + std::to_string(n) + (stays ? " and later" : ""));
          {
            const FaultAt at(
                n, fault, stays,
                {Call::kMapMemory, Call::kReadFile, Call::kWriteFile, Call::kExtendFile});
            bool worked = false;
            try {
              worked = run();
            } catch (const CVmMemoryAllocationError&) {
            }
            passed = !FaultAt::Happened();
            EXPECT_TRUE(worked || !passed);
          }
          ASSERT_EQ(m_manager->Inspect().fault, "");
          ASSERT_EQ(m_manager->Inspect().pins, 0);
          check();
          ASSERT_TRUE(HasPattern(*m_image, 1));
          ASSERT_TRUE(run());
        }
        EXPECT_GT(n, 4);
      }
    }
  }

  std::shared_ptr<CVmManagerImpl> m_manager;
  std::unique_ptr<CVmImage> m_image;
  std::int64_t m_lines = 3;
};

TEST_F(FaultTest, Allocating) {
  Loop(
      [&] {
        // Two blocks in memory and ever more new ones in the swap file.
        if (!m_manager->MakeRoom(m_image->GetVmHandle())) return false;
        if (!m_manager->MakeRoom(m_image->GetVmHandle())) return false;
        const CVmImage made(m_manager, 8, kBlock, ++m_lines, 1, nullptr);
        return true;
      },
      [&] { EXPECT_EQ(m_manager->Inspect().handles, 1); });
}

TEST_F(FaultTest, Reading) {
  Loop([&] { return HasPattern(*m_image, 1); }, [&] {});
}

TEST_F(FaultTest, Writing) {
  // The pixels do not change, but every block is dirty again.
  Loop(
      [&] {
        for (std::int64_t i = 0; i < m_image->GetBlockCount(); ++i) {
          const BlockGuard guard = m_image->PinBlock(i, BlockIntent::Write);
          if (!guard) return false;
          guard.Address()[9] = PatternByte(1, i, 9);
        }
        return true;
      },
      [&] {});
}

TEST_F(FaultTest, Copying) {
  CVmImage target(m_manager, 8, 100, 9, 1, nullptr);
  ASSERT_TRUE(FillPattern(target, 2));
  bool before = true;  // the target holds its own pixels
  Loop(
      [&] {
        target.CopyImage(*m_image, nullptr);
        before = false;
        return HasPattern(target, 1);
      },
      [&] {
        // As it was, empty, or the whole copy.
        EXPECT_TRUE(!target.GetVmHandle() || HasPattern(target, before ? 2 : 1));
        EXPECT_EQ(m_manager->Inspect().handles, target.GetVmHandle() ? 2 : 1);
      });
}

TEST_F(FaultTest, AnUnreadableBlockIsNamedAndStaysWhereItIs) {
  m_manager->MakeRoom(m_image->GetVmHandle());
  std::int64_t swapped = 0;
  while (m_image->GetVmHandle()->GetType(swapped) != CVmBlock::Type::Swap) ++swapped;
  const FaultAt at(1, Fault::kIoError, true, {Call::kReadFile});
  try {
    m_image->GetImageAdr(0, swapped, 0, false, false, nullptr);
    ADD_FAILURE() << "the block could not be read";
  } catch (const CVmMemoryAllocationError& error) {
    EXPECT_NE(std::string(error.what()).find("~QV"), std::string::npos) << error.what();
  }
  EXPECT_EQ(m_image->GetVmHandle()->GetType(swapped), CVmBlock::Type::Swap);
}

}  // namespace
}  // namespace korin::test
