#include "kernels/block_driver.h"

#include "support/recording_progress.h"
#include "vm/noting_manager.h"
#include "vm/vm_test_support.h"

namespace korin::test {
namespace {

using Calls = NotingManager::Calls;

class BlockDriver : public VmTest {
 protected:
  // Tells its percentages into the list of the manager's calls.
  struct Sink : RecordingProgress {
    explicit Sink(Calls& all) : paging(all) {}
    void update(int percent) override { paging.push_back("update " + std::to_string(percent)); }
    void finalize() override { paging.push_back("finalize"); }
    Calls& paging;
  };

  bool Run(CVmImage& to, CVmImage& from, bool cutAtPlanes, int failingPiece = -1) {
    m_manager->calls.clear();
    ScopedProgress scope(std::make_shared<Sink>(m_manager->calls), from.GetBlockCount());
    return RunBlockDriver(to, from, scope, cutAtPlanes, [&](const BlockPiece& piece) {
      m_manager->calls.push_back("kernel " + std::to_string(piece.lines) + " of plane " +
                                 std::to_string(piece.plane));
      std::copy_n(piece.source, piece.width * piece.lines, piece.destination);
      return failingPiece-- != 0;
    });
  }

  // 8 lines to a block.
  std::shared_ptr<NotingManager> m_manager =
      std::make_shared<NotingManager>(CreateManagerForTest(64, 20, 20));
};

TEST_F(BlockDriver, TakesDestinationAndSourceThenReportsThenWorks) {
  CVmImage from(m_manager, 8, 8, 10, 2, nullptr);
  CVmImage to(m_manager, 8, 8, 10, 2, nullptr);
  ASSERT_TRUE(FillPattern(from, 5));
  EXPECT_TRUE(Run(to, from, false));
  EXPECT_EQ(
      m_manager->calls,
      (Calls{"get 1:0 false", "get 0:0 true", "update 33", "kernel 8 of plane 0", "get 1:1 false",
             "get 0:1 true", "update 66", "kernel 8 of plane 0", "get 1:2 false", "get 0:2 true",
             "update 100", "kernel 4 of plane 1", "finalize"}));
  EXPECT_TRUE(HasPattern(to, 5));
  ASSERT_TRUE(FillPattern(from, 6));
  EXPECT_TRUE(Run(to, from, true));
  std::erase_if(m_manager->calls, [](const std::string& call) { return call[0] != 'k'; });
  EXPECT_EQ(m_manager->calls, (Calls{"kernel 8 of plane 0", "kernel 2 of plane 0",
                                     "kernel 6 of plane 1", "kernel 4 of plane 1"}));
  EXPECT_TRUE(HasPattern(to, 6));
}

TEST_F(BlockDriver, StopsAtABlockThatCannotComeInOrAKernelThatFails) {
  CVmImage from(m_manager, 8, 8, 20, 1, nullptr);
  CVmImage to(m_manager, 8, 8, 20, 1, nullptr);
  const Calls first = {"get 1:0 false", "get 0:0 true", "update 33", "kernel 8 of plane 0"};
  for (const auto& [failAt, failingPiece, added] : {std::tuple(2, -1, Calls{"get 1:1 false"}),
                                                    {3, -1, {"get 1:1 false", "get 0:1 true"}},
                                                    {-1, 0, {}}}) {
    ASSERT_TRUE(FillPattern(from, 5));
    ASSERT_TRUE(FillPattern(to, 9));
    m_manager->failAt = failAt;
    EXPECT_FALSE(Run(to, from, false, failingPiece));
    m_manager->failAt = -1;
    Calls expected = first;
    expected.insert(expected.end(), added.begin(), added.end());
    expected.push_back("finalize");
    EXPECT_EQ(m_manager->calls, expected);
    // The block that was done stays done, later ones are untouched.
    EXPECT_EQ(to.PinBlock(0, BlockIntent::Read).Address()[0], PatternByte(5, 0, 0));
    EXPECT_EQ(to.PinBlock(1, BlockIntent::Read).Address()[0], PatternByte(9, 1, 0));
  }
}

TEST_F(BlockDriver, RefusesOtherLayoutsAndTakesEmptyOnes) {
  CVmImage from(m_manager, 8, 8, 20, 1, nullptr);
  CVmImage wider(m_manager, 8, 7, 20, 1, nullptr);    // 9 lines to a block
  CVmImage deeper(m_manager, 16, 8, 20, 1, nullptr);  // 4 lines
  CVmImage longer(m_manager, 8, 8, 30, 1, nullptr);   // one block more
  for (CVmImage* to : {&wider, &deeper, &longer}) {
    EXPECT_FALSE(Run(*to, from, false));
    EXPECT_EQ(m_manager->calls, Calls{"finalize"});
  }
  CVmImage none(m_manager, 8, 0, 20, 1, nullptr);
  CVmImage alsoNone(m_manager, 8, 0, 20, 1, nullptr);
  EXPECT_TRUE(Run(alsoNone, none, true));
  EXPECT_EQ(m_manager->calls, Calls{"finalize"});
}

}  // namespace
}  // namespace korin::test
