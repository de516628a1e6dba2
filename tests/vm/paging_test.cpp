// Long random use of a manager with a handful of blocks, beside a model of the
// rules and a plain copy of the pixels.
#include <algorithm>
#include <random>
#include <set>

#include "vm/counting_backends.h"
#include "vm/key_set.h"
#include "vm/paging_model.h"

namespace korin::test {
namespace {

using Bytes = std::vector<BYTE>;

// One handle with what its blocks must hold and who holds them.
struct Image {
  int id = 0;
  std::shared_ptr<CVmHandle> handle;
  std::vector<Bytes> shadow;
  struct Guard {
    std::int64_t block;
    BYTE* address;
  };
  std::vector<Guard> guards;
};

class LongRun {
 public:
  // On real backends, or on some that count what is taken of them.
  LongRun(unsigned seed, bool counted, std::int32_t block, std::int64_t capacity,
          std::int64_t limit)
      : m_random(seed),
        m_block(block),
        m_capacity(capacity),
        m_limit(limit),
        m_manager(counted ? CreateCountedManager(m_usage, block, capacity, limit)
                          : CreateManagerForTest(block, capacity, limit)),
        m_model(capacity, limit) {}

  void Step() {
    const int action = Pick(100);
    if (m_images.empty() || (action < 6 && m_images.size() < 6)) {
      Alloc();
    } else if (action < 9) {
      Release();
    } else if (action < 60) {
      Fetch();
    } else if (action < 70) {
      Lock();
    } else if (action < 90) {
      Unpin();
    } else if (action < 97) {
      Image& image = Any();
      m_model.UnlockAll(image.id);
      m_manager->UnlockAll(image.handle);
    } else {
      Image& image = Any();
      EXPECT_EQ(m_manager->MakeRoom(image.handle), m_model.MakeRoom(image.id));
    }
    Compare();
  }

  // Every block once more, one at a time.
  void ReadAll() {
    for (Image& image : m_images) {
      while (!image.guards.empty()) Unpin(image, 0);
      m_model.UnlockAll(image.id);
      m_manager->UnlockAll(image.handle);
    }
    for (Image& image : m_images) {
      for (std::size_t i = 0; i < image.shadow.size(); ++i) {
        const auto index = static_cast<std::int64_t>(i);
        const BYTE* address = m_manager->GetBlockAddress(image.handle, index, false);
        EXPECT_EQ(address != nullptr, m_model.Fetch(image.id, index, false, false));
        if (address != nullptr) Verify(image, index, address);
      }
    }
    Compare();
  }

  void ReleaseAll() {
    while (!m_images.empty()) Release();
    Compare();
    EXPECT_EQ(m_model.memoryUsed, 0);
    EXPECT_EQ(m_model.allocated, 0);
    EXPECT_LE(m_usage.disk.most, m_limit * m_block);
    if (kPoison) return;
    EXPECT_LE(m_usage.memory.most, m_capacity * m_block);
    EXPECT_EQ(m_usage.memory.now, 0);
  }

  std::int64_t LimitLines() const { return m_model.limitLines; }

 private:
  int Pick(int count) { return static_cast<int>(m_random() % static_cast<unsigned>(count)); }
  Image& Any() {
    return m_images[static_cast<std::size_t>(Pick(static_cast<int>(m_images.size())))];
  }

  void Alloc() {
    const std::int64_t sizes[] = {m_block, m_block / 4, m_block + 1, 3 * m_block, 2 * m_block - 7};
    const std::int64_t bytes = sizes[Pick(5)];
    const std::int64_t count = Pick(5);
    Image image;
    image.id = m_nextId++;
    m_manager->AllocHandle(image.handle, bytes, count, nullptr);
    EXPECT_EQ(image.handle != nullptr,
              m_model.Alloc(image.id, (bytes + m_block - 1) / m_block, count));
    if (!image.handle) return;
    image.shadow.assign(static_cast<std::size_t>(count), Bytes(static_cast<std::size_t>(bytes)));
    m_images.push_back(std::move(image));
  }

  void Release() {
    const auto at = static_cast<std::size_t>(Pick(static_cast<int>(m_images.size())));
    Image& image = m_images[at];
    while (!image.guards.empty()) Unpin(image, 0);
    m_model.Release(image.id);
    m_manager->ReleaseHandle(image.handle);
    EXPECT_EQ(image.handle, nullptr);
    m_images.erase(m_images.begin() + static_cast<std::ptrdiff_t>(at));
  }

  void Fetch() {
    Image& image = Any();
    if (image.shadow.empty()) return;
    const std::int64_t index = Pick(static_cast<int>(image.shadow.size()));
    const int kind = Pick(5);
    if (kind < 2) {
      const bool write = kind == 1;
      BYTE* address = m_manager->GetBlockAddress(image.handle, index, write);
      ASSERT_EQ(address != nullptr, m_model.Fetch(image.id, index, write, false));
      if (address == nullptr) return;
      Verify(image, index, address);
      if (write) Scribble(image, index, address, false);
      return;
    }
    const auto intent = static_cast<BlockIntent>(kind - 2);
    BYTE* address = m_manager->MapBlock(image.handle, index, Pick(2) == 0, intent);
    ASSERT_EQ(address != nullptr,
              m_model.Fetch(image.id, index, intent != BlockIntent::Read, true));
    if (address == nullptr) return;
    if (intent != BlockIntent::Overwrite) Verify(image, index, address);
    if (intent != BlockIntent::Read) {
      Scribble(image, index, address, intent == BlockIntent::Overwrite);
    }
    image.guards.push_back({index, address});
  }

  void Lock() {
    Image& image = Any();
    if (image.shadow.empty()) return;
    const std::int64_t index = Pick(static_cast<int>(image.shadow.size()));
    const bool lock = Pick(2) == 0;
    EXPECT_EQ(m_manager->LockBlock(image.handle, lock, index), m_model.Lock(image.id, index, lock));
  }

  void Unpin() {
    Image& image = Any();
    if (!image.guards.empty())
      Unpin(image, static_cast<std::size_t>(Pick(static_cast<int>(image.guards.size()))));
  }
  void Unpin(Image& image, std::size_t at) {
    const Image::Guard guard = image.guards[at];
    // The address held all the while.
    Verify(image, guard.block, guard.address);
    m_manager->UnmapBlock(image.handle, guard.block);
    m_model.Unpin(image.id, guard.block);
    image.guards.erase(image.guards.begin() + static_cast<std::ptrdiff_t>(at));
  }

  static void Verify(const Image& image, std::int64_t index, const BYTE* address) {
    const Bytes& shadow = image.shadow[static_cast<std::size_t>(index)];
    EXPECT_TRUE(std::equal(shadow.begin(), shadow.end(), address)) << "pixels of block " << index;
  }

  void Scribble(Image& image, std::int64_t index, BYTE* address, bool all) {
    Bytes& shadow = image.shadow[static_cast<std::size_t>(index)];
    const std::size_t first = all ? 0 : m_random() % shadow.size();
    const std::size_t end = all ? shadow.size() : first + 1 + m_random() % (shadow.size() - first);
    for (std::size_t i = first; i < end; ++i) shadow[i] = static_cast<BYTE>(m_random());
    std::copy(shadow.begin() + static_cast<std::ptrdiff_t>(first),
              shadow.begin() + static_cast<std::ptrdiff_t>(end), address + first);
  }

  void Compare() {
    const auto figures = m_manager->Inspect();
    ASSERT_EQ(figures.fault, "");
    ASSERT_EQ(figures.memoryUsed, m_model.memoryUsed);
    ASSERT_EQ(figures.swapUsed, m_model.swapUsed);
    ASSERT_EQ(figures.allocated, m_model.allocated);
    ASSERT_EQ(figures.freeExtents, m_model.FreeExtents());
    for (const Image& image : m_images) {
      for (std::int64_t i = 0; i < image.handle->GetBlockCount(); ++i) {
        const auto& expected = m_model.Get(image.id, i);
        ASSERT_EQ(static_cast<int>(image.handle->GetType(i)), static_cast<int>(expected.type));
        ASSERT_EQ(image.handle->GetSlotIndex(i), expected.slot);
      }
    }
  }

  std::mt19937 m_random;
  std::int64_t m_block;
  std::int64_t m_capacity;
  std::int64_t m_limit;
  Usage m_usage;
  std::shared_ptr<CVmManagerImpl> m_manager;
  PagingModel m_model;
  std::vector<Image> m_images;
  int m_nextId = 0;
};

class PagingTest : public VmTest {};

TEST_F(PagingTest, AKeySetFindsItsSmallestAtAnySize) {
  vm::KeySet keys;
  std::set<std::int64_t> expected;
  std::mt19937 random(7);
  for (const std::int64_t end : {1, 64, 65, 4097, 300000}) {
    keys.Reserve(end);
    for (int step = 0; step < 3000; ++step) {
      // Any key comes or goes, or the smallest goes, so that whole words empty.
      const std::int64_t key = step % 2 == 0 || expected.empty()
                                   ? static_cast<std::int64_t>(random()) % end
                                   : *expected.begin();
      if (expected.erase(key) > 0) {
        keys.Remove(key);
      } else {
        expected.insert(key);
        keys.Add(key);
      }
      ASSERT_EQ(keys.First(), expected.empty() ? -1 : *expected.begin());
    }
    if (expected.insert(end - 1).second) keys.Add(end - 1);
  }
}

TEST_F(PagingTest, EveryKeySlotAndPixelIsWhatTheRulesSay) {
  std::int64_t lines = 0;
  ::testing::internal::CaptureStderr();
  for (unsigned seed = 1; seed <= 60 && !HasFailure(); ++seed) {
    const std::int64_t capacity = 1 + seed % 8;
    const std::int64_t limit = seed % 7 == 0 ? 0 : 2 + (seed * 5) % 31;
    SCOPED_TRACE("seed " + std::to_string(seed));
    // Blocks of whole pages, of odd sizes, and several to a page.
    const std::int32_t block = seed % 4 == 1 ? 1001 : seed % 4 == 3 ? 333 : kBlock;
    LongRun run(seed, seed % 2 == 1, block, capacity, limit);
    for (int step = 0; step < 1500 && !HasFailure(); ++step) run.Step();
    run.ReadAll();
    run.ReleaseAll();
    lines += run.LimitLines();
  }
  const std::string text = ::testing::internal::GetCapturedStderr();
  EXPECT_GT(lines, 0);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), lines);
  EXPECT_NE(text.find("Disk limit has been reached.\n"), std::string::npos);
}

}  // namespace
}  // namespace korin::test
