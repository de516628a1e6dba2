#pragma once

#include "vm/manager_impl.h"

namespace korin::test {

using Policy = CVmManager::AllocationPolicy;

// A manager with memory for `capacity` blocks, so that images page early.
inline std::shared_ptr<CVmManager> MakeManager(std::int32_t blockSize, std::int64_t capacity,
                                               std::int64_t diskBlocks = 4000) {
  return CreateManagerForTest(blockSize, capacity, diskBlocks);
}

}  // namespace korin::test
