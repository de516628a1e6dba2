// Several threads with whole operations on several images of one manager that holds
// a few blocks at a time: everybody's fetches evict everybody's blocks.
#include <atomic>
#include <thread>

#include "image/image_fixture.h"
#include "korinimage/exceptions.h"

namespace korin::test {
namespace {

constexpr int kThreads = 3;

class ImageThreadsTest : public ImageTest {};

TEST_F(ImageThreadsTest, ReadersWritersAndConversionsBesideEachOther) {
  const Shape shape{64, 48, 3};
  const auto pixels = RandomPixels<std::int16_t>(shape);
  for (const Policy policy : {Policy::Blocks, Policy::Planes}) {
    const auto manager = MakeManager(1024, policy == Policy::Blocks ? 8 : 80);
    manager->SetAllocationPolicy(policy);
    // An image to read and one to write for each thread.
    std::vector<CImage> read, written;
    for (int i = 0; i < kThreads; ++i) {
      read.push_back(MakeImage(manager, shape, pixels, 0.5, 3.0));
      written.push_back(MakeImage(manager, shape, pixels));
    }
    const auto expected = read[0].GetMinMaxAvr(-1);
    const auto bins = read[0].Histogram(1, 20);
    std::atomic<int> wrong{0};
    const auto work = [&](int thread) {
      const auto index = static_cast<std::size_t>(thread);
      CImage& mine = read[index];
      for (int round = 0; round < 12; ++round) {
        wrong += mine.GetMinMaxAvr(-1) == expected ? 0 : 1;
        wrong += mine.Histogram(1, 20) == bins ? 0 : 1;
        const int value = 100 * thread + round;
        wrong += written[index].Fill(round % 3, value) ? 0 : 1;
        const auto [low, high] = written[index].GetMinMaxRaw(round % 3);
        wrong += low == value && high == value ? 0 : 1;
        // An image of the thread's own comes, is converted and goes.
        CImage own(mine);
        WritePixels(own, pixels);  // through locks
        wrong += own.ChangeBits(CImage::DataTypeFloat, true, CImage::ChangeBitsLevel::Raw, kSilent)
                     ? 0
                     : 1;
        wrong += own.GetMinMaxAvr(-1) == expected ? 0 : 1;
      }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) threads.emplace_back(work, i);
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
    for (CImage& image : read) EXPECT_TRUE(ReadPixels<std::int16_t>(image) == pixels);
    const auto* impl = dynamic_cast<CVmManagerImpl*>(manager.get());
    EXPECT_EQ(impl->Inspect().fault, "");
    EXPECT_EQ(impl->Inspect().pins, 0);
  }
}

}  // namespace
}  // namespace korin::test
