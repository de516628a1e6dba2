#include "korinimage/global_memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <set>

#include "platform/fault.h"
#include "support/system.h"

namespace korin {
namespace {

TEST(GlobalMemory, HoldsZeroedBytesOfTheExactSize) {
  for (const std::int64_t size : {1, 40, 300'001}) {
    const HDIB memory = AllocGlobalMemory(size);
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(GlobalMemorySize(memory), size);
    auto* const bytes = static_cast<std::byte*>(LockGlobalMemory(memory));
    ASSERT_NE(bytes, nullptr);
    const std::size_t alignment = test::kWindows ? 8 : alignof(std::max_align_t);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(bytes) % alignment, 0U);
    EXPECT_TRUE(std::all_of(bytes, bytes + size, [](std::byte b) { return b == std::byte{0}; }));
    bytes[size - 1] = std::byte{7};
    EXPECT_EQ(LockGlobalMemory(memory), bytes);
    EXPECT_TRUE(UnlockGlobalMemory(memory)) << "locks count";
    EXPECT_FALSE(UnlockGlobalMemory(memory));
    EXPECT_FALSE(UnlockGlobalMemory(memory)) << "below zero";
    EXPECT_EQ(static_cast<std::byte*>(LockGlobalMemory(memory))[size - 1], std::byte{7});
    EXPECT_TRUE(FreeGlobalMemory(memory)) << "locked blocks are freed too";
  }
}

TEST(GlobalMemory, DeadAndForeignHandlesAreRecognised) {
  if (test::kWindows) GTEST_SKIP() << "the system's own handles, recognised as it can";
  const HDIB memory = AllocGlobalMemory(8);
  ASSERT_TRUE(FreeGlobalMemory(memory));
  // Later blocks do not answer to the old handle, nor does one made from a full table.
  std::set<HDIB> later;
  while (const HDIB one = AllocGlobalMemory(0)) later.insert(one);
  EXPECT_EQ(later.size(), 0xFFFFU);
  const HDIB freed = *later.begin();
  ASSERT_TRUE(FreeGlobalMemory(freed));
  const HDIB again = AllocGlobalMemory(1);
  EXPECT_TRUE(later.insert(again).second);
  later.erase(freed);
  int local = 0;
  for (const HDIB dead : {memory, freed, HDIB{nullptr}, static_cast<HDIB>(&local)}) {
    EXPECT_EQ(GlobalMemorySize(dead), 0);
    EXPECT_EQ(LockGlobalMemory(dead), nullptr);
    EXPECT_FALSE(UnlockGlobalMemory(dead));
    EXPECT_FALSE(FreeGlobalMemory(dead));
  }
  for (const HDIB one : later) EXPECT_TRUE(FreeGlobalMemory(one));
}

TEST(GlobalMemory, SizesThatCannotBe) {
  EXPECT_EQ(AllocGlobalMemory(-1), nullptr);
  EXPECT_EQ(AllocGlobalMemory(std::numeric_limits<std::int64_t>::max()), nullptr);
  const HDIB empty = AllocGlobalMemory(0);
  EXPECT_NE(empty, nullptr);
  EXPECT_EQ(LockGlobalMemory(empty), nullptr);
  EXPECT_TRUE(FreeGlobalMemory(empty));

  platform::g_faultHook = [](platform::Call) { return platform::Fault::kNoMemory; };
  EXPECT_EQ(AllocGlobalMemory(8), nullptr);
  platform::g_faultHook = nullptr;
}

}  // namespace
}  // namespace korin
