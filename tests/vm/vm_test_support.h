#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "korinimage/vm_image.h"
#include "platform/fault.h"
#include "platform/memory_figures.h"
#include "support/memory_config.h"
#include "vm/manager_impl.h"
#include "vm/region_cache.h"

namespace korin::test {

inline constexpr std::int32_t kBlock = 4096;

#ifdef KORINIMAGE_POISON
inline constexpr bool kPoison = true;  // blocks let go stay allocated for a while
#else
inline constexpr bool kPoison = false;
#endif

// Settings in memory; faults and figures that a test sets go with the test, and no
// block may be left.
class VmTest : public ::testing::Test {
 protected:
  ~VmTest() override {  // after the members of the test's own fixture
    platform::g_faultHook = nullptr;
    platform::g_overrides = nullptr;
    if (!kPoison) {
      EXPECT_EQ(vm::RegionCache::Instance().GetFigures().inUse, 0);
    }
  }

  ScopedMemoryConfig m_config;
};

// Memory that asks the fault seam for every block, not only for every chunk.
inline std::unique_ptr<CVmMemoryInterface> AskingMemory(std::int64_t bytes) {
  const platform::Fault fault = platform::AskFault(platform::Call::kMapMemory);
  const bool refused = fault != platform::Fault::kNone && fault != platform::Fault::kInterrupted;
  return CVmMemoryInterface::Alloc(refused ? 0 : bytes);
}

// Makes the n-th of the chosen calls to the system fail, once or from then on.
class FaultAt {
 public:
  FaultAt(int n, platform::Fault fault, bool stays, std::initializer_list<platform::Call> calls) {
    s_left = n;
    s_fault = fault;
    s_stays = stays;
    s_calls = 0;
    for (const platform::Call call : calls) s_calls |= 1U << static_cast<unsigned>(call);
    platform::g_faultHook = &Answer;
  }
  FaultAt(const FaultAt&) = delete;
  FaultAt& operator=(const FaultAt&) = delete;
  ~FaultAt() { platform::g_faultHook = nullptr; }

  static bool Happened() { return s_left <= 0; }

 private:
  static platform::Fault Answer(platform::Call call) {
    if ((s_calls >> static_cast<unsigned>(call) & 1U) == 0) return platform::Fault::kNone;
    const int left = --s_left;
    return left == 0 || (left < 0 && s_stays) ? s_fault : platform::Fault::kNone;
  }

  static inline std::atomic<int> s_left{0};
  static inline platform::Fault s_fault{};
  static inline bool s_stays = false;
  static inline unsigned s_calls = 0;
};

// Fills every pixel byte of a store with a pattern of its own, and compares.
inline BYTE PatternByte(unsigned seed, std::int64_t line, std::int64_t at) {
  return static_cast<BYTE>(seed * 101 + static_cast<unsigned>(line) * 31 +
                           static_cast<unsigned>(at) * 7);
}
inline bool FillPattern(CVmImage& image, unsigned seed) {
  for (std::int64_t b = 0; b < image.GetBlockCount(); ++b) {
    const BlockGuard guard = image.PinBlock(b, BlockIntent::Overwrite);
    if (!guard) return false;
    const std::int64_t bytes = image.GetBlockLineCount(b) * image.GetBytesPerLine();
    for (std::int64_t i = 0; i < bytes; ++i) guard.Address()[i] = PatternByte(seed, b, i);
  }
  return true;
}
inline bool HasPattern(CVmImage& image, unsigned seed) {
  for (std::int64_t b = 0; b < image.GetBlockCount(); ++b) {
    const BlockGuard guard = image.PinBlock(b, BlockIntent::Read);
    if (!guard) return false;
    const std::int64_t bytes = image.GetBlockLineCount(b) * image.GetBytesPerLine();
    for (std::int64_t i = 0; i < bytes; ++i) {
      if (guard.Address()[i] != PatternByte(seed, b, i)) return false;
    }
  }
  return true;
}

// What the calling code writes to standard error.
inline std::string StderrOf(const std::function<void()>& run) {
  ::testing::internal::CaptureStderr();
  run();
  return ::testing::internal::GetCapturedStderr();
}

}  // namespace korin::test
