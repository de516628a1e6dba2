#include "kernels/paged_rows.h"

#include <atomic>
#include <cstring>

#include "korinimage/exceptions.h"
#include "korinimage/threads.h"
#include "vm/swap_backend.h"
#include "vm/vm_test_support.h"

namespace korin::test {
namespace {

// A swap file whose reads beside the manager a test can watch or do without.
class WatchedSwap : public CVmWin32VirtualMemory {
 public:
  struct Watch {
    bool possible = true;
    std::atomic<int> reads{0};
    std::function<void(void*, std::int64_t)> onFirst;  // in place of the first read
  };
  WatchedSwap(const std::filesystem::path& folder, Watch& watch)
      : CVmWin32VirtualMemory(folder), m_watch(watch) {}
  bool ReadsBeside() const override { return m_watch.possible; }
  bool ReadBeside(std::int64_t offset, void* buffer, std::int64_t size) const override {
    if (m_watch.reads++ > 0 || !m_watch.onFirst) {
      return CVmWin32VirtualMemory::ReadBeside(offset, buffer, size);
    }
    m_watch.onFirst(buffer, size);
    return true;
  }

 private:
  Watch& m_watch;
};

class PagedRowsTest : public VmTest {
 protected:
  std::shared_ptr<CVmManagerImpl> Make(std::int64_t capacity, std::int64_t disk = 1000) {
    vm::ManagerSeams seams;
    seams.swap = [this](const std::filesystem::path& folder) {
      return std::make_unique<WatchedSwap>(folder, m_watch);
    };
    return CreateManagerForTest(kBlock, capacity, disk, std::move(seams));
  }

  // 1 for each row of a plane that came with its own pattern last.
  static std::vector<int> RightRows(CVmImage& store, std::int64_t plane, unsigned seed) {
    const std::int64_t height = store.GetHeight();
    const std::int64_t width = store.GetBytesPerLine();
    const std::int64_t linesPerBlock = store.GetLinesPerBlock();
    std::vector<int> right(static_cast<std::size_t>(height));
    const auto check = [&](const BYTE* rows, std::int64_t y, std::int64_t lines) {
      for (std::int64_t line = 0; line < lines; ++line) {
        const std::int64_t number = plane * height + y + line;
        const std::int64_t at = number % linesPerBlock * width;
        bool same = true;
        for (std::int64_t x = 0; x < width; ++x) {
          same =
              same && rows[line * width + x] == PatternByte(seed, number / linesPerBlock, at + x);
        }
        right[static_cast<std::size_t>(y + line)] = same ? 1 : 0;
      }
    };
    ForEachPagedStretch(store, plane, height, check);
    return right;
  }

  static std::vector<CVmBlock::Type> Places(CVmImage& store) {
    std::vector<CVmBlock::Type> places;
    for (std::int64_t i = 0; i < store.GetBlockCount(); ++i) {
      places.push_back(store.GetVmHandle()->GetType(i));
    }
    return places;
  }

  WatchedSwap::Watch m_watch;
};

TEST_F(PagedRowsTest, ReadWhatIsInTheSwapFileWithoutBringingItIn) {
  for (const bool possible : {true, false}) {
    for (const std::int64_t capacity : {1, 3, 9, 30}) {
      for (const auto policy : {Policy::Blocks, Policy::Planes}) {
        m_watch.possible = possible;
        m_watch.reads = 0;
        const auto manager = Make(capacity);
        manager->SetAllocationPolicy(policy);
        CVmImage store(manager, 8, 700, 31, 3, nullptr);
        if (!FillPattern(store, 5)) continue;  // a plane that does not fit
        const auto before = Places(store);
        for (std::int64_t plane = 0; plane < 3; ++plane) {
          EXPECT_EQ(RightRows(store, plane, 5), std::vector<int>(31, 1)) << capacity;
        }
        if (possible) {
          EXPECT_TRUE(Places(store) == before) << capacity;
        }
        EXPECT_EQ(m_watch.reads > 0, possible && !store.IsOnMemory()) << capacity;
        EXPECT_EQ(manager->Inspect().fault, "");
        EXPECT_EQ(manager->Inspect().pins, 0);
      }
    }
  }
}

// While a block is read, it is brought in and its place in the file given to others.
TEST_F(PagedRowsTest, TakeAgainWhatChangedItsPlaceMeanwhile) {
  const auto manager = Make(2, 4);
  CVmImage store(manager, 8, kBlock, 4, 1, nullptr);
  ASSERT_TRUE(FillPattern(store, 5));
  std::vector<std::unique_ptr<CVmImage>> others;
  m_watch.onFirst = [&](void* buffer, std::int64_t size) {
    std::memset(buffer, 0xEE, static_cast<std::size_t>(size));
    EXPECT_TRUE(store.PinBlock(0, BlockIntent::Read));
    // Neither fits but in place of a copy: the two blocks in memory give theirs up.
    for (int i = 0; i < 2; ++i) {
      others.push_back(std::make_unique<CVmImage>(manager, 8, kBlock, 1, 1, nullptr));
    }
  };
  SetThreadCount(1);  // the block of row 0 is the first that is read
  EXPECT_EQ(RightRows(store, 0, 5), std::vector<int>(4, 1));
  SetThreadCount(0);
  EXPECT_EQ(others.size(), 2u);
  EXPECT_EQ(manager->Inspect().fault, "");
}

// A file that cannot be read is an error of the calling thread; one bad call is not.
TEST_F(PagedRowsTest, ReadErrorsReachTheCaller) {
  const auto manager = Make(2);
  CVmImage store(manager, 8, kBlock, 9, 1, nullptr);
  ASSERT_TRUE(FillPattern(store, 5));
  {
    const FaultAt fault(1, platform::Fault::kIoError, false, {platform::Call::kReadFile});
    EXPECT_EQ(RightRows(store, 0, 5), std::vector<int>(9, 1));
  }
  {
    const FaultAt fault(1, platform::Fault::kIoError, true, {platform::Call::kReadFile});
    EXPECT_THROW(RightRows(store, 0, 5), CVmMemoryAllocationError);
  }
  EXPECT_EQ(RightRows(store, 0, 5), std::vector<int>(9, 1));
}

}  // namespace
}  // namespace korin::test
