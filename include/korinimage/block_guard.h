#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "korinimage/export.h"
#include "korinimage/types.h"
#include "korinimage/vm_manager.h"

namespace korin {

// Holds one block of an image in memory while it lives: its address stays valid,
// and it is marked modified when it was taken to be written. Movable, not
// copyable. Made by CVmImage::PinBlock; let go on the thread that took it.
class KORINIMAGE_API BlockGuard {
 public:
  BlockGuard() = default;
  BlockGuard(std::shared_ptr<CVmManager> manager, std::shared_ptr<CVmHandle> handle,
             std::int64_t block, BYTE* address)
      : m_manager(std::move(manager)),
        m_handle(std::move(handle)),
        m_block(block),
        m_address(address) {}
  BlockGuard(BlockGuard&& other) noexcept { Swap(other); }
  BlockGuard& operator=(BlockGuard&& other) noexcept {
    BlockGuard taken(std::move(other));
    Swap(taken);
    return *this;
  }
  BlockGuard(const BlockGuard&) = delete;
  BlockGuard& operator=(const BlockGuard&) = delete;
  ~BlockGuard() { Release(); }

  // First byte of the block; null for an empty guard (no room in memory).
  BYTE* Address() const { return m_address; }
  explicit operator bool() const { return m_address != nullptr; }
  std::int64_t Block() const { return m_block; }

  void Release() noexcept {
    if (m_address != nullptr) m_manager->UnmapBlock(m_handle, m_block);
    m_address = nullptr;
    m_handle.reset();
    m_manager.reset();
  }

 private:
  void Swap(BlockGuard& other) noexcept {
    std::swap(m_manager, other.m_manager);
    std::swap(m_handle, other.m_handle);
    std::swap(m_block, other.m_block);
    std::swap(m_address, other.m_address);
  }

  std::shared_ptr<CVmManager> m_manager;  // declared first: outlives the block it holds
  std::shared_ptr<CVmHandle> m_handle;
  std::int64_t m_block = -1;
  BYTE* m_address = nullptr;
};

}  // namespace korin
