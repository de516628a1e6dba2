#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "korinimage/vm_image.h"
#include "platform/fault.h"
#include "support/memory_config.h"
#include "vm/manager_impl.h"
#include "vm/region_cache.h"

namespace korin::test {

inline constexpr std::int32_t kBlock = 4096;

// Faults and figures that a test sets go with the test.
class VmTest : public ::testing::Test {
 protected:
  void TearDown() override {
    platform::g_faultHook = nullptr;
    platform::g_overrides = nullptr;
    EXPECT_EQ(vm::RegionCache::Instance().GetFigures().inUse,
              kPoisonKeeps ? vm::RegionCache::Instance().GetFigures().inUse : 0)
        << "memory of blocks is left";
  }
#ifdef KORINIMAGE_POISON
  static constexpr bool kPoisonKeeps = true;  // retired blocks are kept for a while
#else
  static constexpr bool kPoisonKeeps = false;
#endif

  ScopedMemoryConfig m_config;
};

}  // namespace korin::test
