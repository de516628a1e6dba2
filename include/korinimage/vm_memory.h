#pragma once

#include <cstdint>
#include <memory>

#include "korinimage/export.h"
#include "korinimage/vm_memory_interface.h"

class CVmHandle;

// The manager's record of one block that lies in memory.
class KORINIMAGE_API CVmMemory {
 public:
  CVmMemory() = default;
  CVmMemory(CVmMemory&&) noexcept = default;
  CVmMemory& operator=(CVmMemory&&) noexcept = default;
  CVmMemory(const CVmMemory&) = delete;
  CVmMemory& operator=(const CVmMemory&) = delete;

  // Back to the defaults below; releases the memory.
  void Reset();

  std::unique_ptr<CVmMemoryInterface> m_pMemory;
  std::int64_t m_nSize = 1;        // in manager blocks: what evicting it frees
  std::int64_t m_nStamp = -1;      // last use; -1: never touched
  CVmHandle* m_pHandle = nullptr;  // the handle registered with the manager
  std::int64_t m_nIndex = -1;      // of the block within the handle
  std::int64_t m_nSwapSlot = -1;   // slot that holds a copy of the block
  bool m_modified = false;         // differs from the copy on disk
  std::int64_t m_nLock = 0;        // the public lock count
  std::int64_t m_nPin = 0;         // guards of the library itself; never shown
};
