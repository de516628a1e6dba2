#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "korinimage/vm_image.h"
#include "platform/memory_figures.h"
#include "support/fault_at.h"
#include "support/memory_config.h"
#include "vm/manager_impl.h"
#include "vm/region_cache.h"

namespace korin::test {

using Policy = CVmManager::AllocationPolicy;

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

// Every pixel byte of a store is given a pattern of its own, or compared with it.
inline BYTE PatternByte(unsigned seed, std::int64_t line, std::int64_t at) {
  return static_cast<BYTE>(seed * 101 + static_cast<unsigned>(line) * 31 +
                           static_cast<unsigned>(at) * 7);
}
template <typename Visit>  // bool (BYTE&, BYTE pattern)
bool VisitPattern(CVmImage& image, unsigned seed, BlockIntent intent, Visit visit) {
  for (std::int64_t b = 0; b < image.GetBlockCount(); ++b) {
    const BlockGuard guard = image.PinBlock(b, intent);
    if (!guard) return false;
    const std::int64_t bytes = image.GetBlockLineCount(b) * image.GetBytesPerLine();
    for (std::int64_t i = 0; i < bytes; ++i) {
      if (!visit(guard.Address()[i], PatternByte(seed, b, i))) return false;
    }
  }
  return true;
}
inline bool FillPattern(CVmImage& image, unsigned seed) {
  return VisitPattern(image, seed, BlockIntent::Overwrite, [](BYTE& byte, BYTE pattern) {
    byte = pattern;
    return true;
  });
}
inline bool HasPattern(CVmImage& image, unsigned seed) {
  return VisitPattern(image, seed, BlockIntent::Read,
                      [](BYTE byte, BYTE pattern) { return byte == pattern; });
}

// What the calling code writes to standard error.
inline std::string StderrOf(const std::function<void()>& run) {
  ::testing::internal::CaptureStderr();
  run();
  return ::testing::internal::GetCapturedStderr();
}

}  // namespace korin::test
