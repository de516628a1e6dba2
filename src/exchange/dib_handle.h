#pragma once

#include <cstdint>
#include <span>
#include <utility>

#include "korinimage/global_memory.h"
#include "korinimage/types.h"

namespace korin {

// Owns a global-memory block.
class DibHandle {
 public:
  explicit DibHandle(HDIB dib) : m_dib(dib) {}
  DibHandle(const DibHandle&) = delete;
  DibHandle& operator=(const DibHandle&) = delete;
  ~DibHandle() {
    if (m_dib != nullptr) FreeGlobalMemory(m_dib);
  }

  HDIB Get() const { return m_dib; }
  HDIB Release() { return std::exchange(m_dib, nullptr); }
  // For functions that may put another handle in place of this one.
  HDIB* InPlace() { return &m_dib; }

 private:
  HDIB m_dib;
};

// The bytes of a block, locked while this lives. Empty for a dead handle and for a
// block of 0 bytes.
class DibLock {
 public:
  explicit DibLock(HDIB dib) : m_dib(dib) {
    void* const address = dib == nullptr ? nullptr : LockGlobalMemory(dib);
    if (address == nullptr) return;
    m_locked = true;
    m_bytes = {static_cast<BYTE*>(address), static_cast<std::size_t>(GlobalMemorySize(dib))};
  }
  DibLock(const DibLock&) = delete;
  DibLock& operator=(const DibLock&) = delete;
  ~DibLock() {
    if (m_locked) UnlockGlobalMemory(m_dib);
  }

  std::span<BYTE> Bytes() const { return m_bytes; }

 private:
  HDIB m_dib;
  bool m_locked = false;
  std::span<BYTE> m_bytes;
};

}  // namespace korin
