// Several threads on the blocks of several images with a budget of a few blocks.
#include <atomic>
#include <chrono>
#include <future>
#include <random>
#include <thread>
#include <vector>

#include "vm/vm_test_support.h"

namespace korin::test {
namespace {

using namespace std::chrono_literals;

class ThreadsTest : public VmTest {};

// Runs `work` with the numbers 0 to count - 1, each on a thread of its own.
void Together(int count, const std::function<void(int)>& work) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) threads.emplace_back(work, i);
  for (std::thread& thread : threads) thread.join();
}

TEST_F(ThreadsTest, GuardsAlwaysComeHoweverSmallTheBudget) {
  // More threads than blocks: each waits its turn, none fails.
  for (const std::int64_t capacity : {1, 2, 5}) {
    const auto manager = CreateManagerForTest(kBlock, capacity, 200);
    CVmImage images[3] = {{manager, 8, kBlock, 12, 1, nullptr},
                          {manager, 8, kBlock, 12, 1, nullptr},
                          {manager, 8, kBlock, 12, 1, nullptr}};
    std::atomic<int> lost{0};
    Together(4, [&](int thread) {
      std::mt19937 random(static_cast<unsigned>(thread));
      int counts[3][12] = {};
      for (int round = 0; round < 400; ++round) {
        // Every thread writes bytes of its own in any block.
        const auto image = static_cast<std::size_t>(random() % 3);
        const auto block =
            static_cast<std::size_t>(random() % 3 * 4) + static_cast<std::size_t>(thread);
        const BlockGuard guard =
            images[image].PinBlock(static_cast<std::int64_t>(block), BlockIntent::Write);
        if (!guard) {
          ++lost;
          continue;
        }
        int& count = counts[image][block];
        for (const int at : {0, 1000, kBlock - 1}) {
          if (guard.Address()[at] != static_cast<BYTE>(count)) ++lost;
          guard.Address()[at] = static_cast<BYTE>(count + 1);
        }
        ++count;
      }
    });
    EXPECT_EQ(lost, 0);
    EXPECT_EQ(manager->Inspect().fault, "");
    EXPECT_EQ(manager->Inspect().pins, 0);
  }
}

TEST_F(ThreadsTest, AFetchWaitsForGuardsOfOthersOnly) {
  const auto manager = CreateManagerForTest(kBlock, 1, 20);
  CVmImage image(manager, 8, kBlock, 2, 1, nullptr);
  BlockGuard mine = image.PinBlock(0, BlockIntent::Write);
  ASSERT_TRUE(mine);
  // The holder itself does not wait.
  EXPECT_FALSE(image.PinBlock(1, BlockIntent::Read));
  EXPECT_EQ(image.GetBlockOnMemory(1, false), nullptr);
  // Another thread does, in a single fetch and within a lock of its own.
  for (const bool locked : {false, true}) {
    if (!mine) mine = image.PinBlock(0, BlockIntent::Write);
    auto other = std::async(std::launch::async, [&] {
      if (locked) return image.GetImageAdr(0, 1, 0, false, false, nullptr) != nullptr;
      return static_cast<bool>(image.PinBlock(1, BlockIntent::Read));
    });
    EXPECT_EQ(other.wait_for(50ms), std::future_status::timeout);
    mine.Release();
    EXPECT_TRUE(other.get());
  }
  // A lock of the application is not waited for.
  CVmImage::AddressHandle lock;
  image.GetImageAdr(0, 0, 0, false, true, &lock);
  auto other = std::async(std::launch::async,
                          [&] { return static_cast<bool>(image.PinBlock(1, BlockIntent::Read)); });
  EXPECT_FALSE(other.get());
  image.Unlock(lock);

  // Nor is one that takes the place of a guard.
  mine = image.PinBlock(0, BlockIntent::Write);
  other = std::async(std::launch::async,
                     [&] { return static_cast<bool>(image.PinBlock(1, BlockIntent::Read)); });
  EXPECT_EQ(other.wait_for(50ms), std::future_status::timeout);
  image.GetImageAdr(0, 0, 0, false, true, &lock);
  mine.Release();
  EXPECT_EQ(other.wait_for(10s), std::future_status::ready);
  EXPECT_FALSE(other.get());
}

}  // namespace
}  // namespace korin::test
