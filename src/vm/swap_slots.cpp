#include "vm/swap_slots.h"

namespace korin::vm {

std::int64_t SwapSlots::FindFree(std::int64_t size) const {
  const auto found = m_freeBySize.find(size);
  return found == m_freeBySize.end() ? kNone : found->second;
}

void SwapSlots::TakeFree(std::int64_t slot) noexcept {
  Extent& extent = At(slot);
  m_freeBySize.find(extent.size)->second = extent.nextFree;
  extent.free = false;
  --m_freeCount;
}

std::int64_t SwapSlots::Append(std::int64_t size) {
  m_freeBySize.try_emplace(size, kNone);  // so that freeing it allocates nothing
  const std::int64_t slot = m_used;
  m_extents.resize(static_cast<std::size_t>(m_used + size));
  At(slot).size = size;
  m_used += size;
  return slot;
}

void SwapSlots::Free(std::int64_t slot) noexcept {
  Extent& extent = At(slot);
  std::int64_t& top = m_freeBySize.find(extent.size)->second;
  extent.nextFree = top;
  extent.free = true;
  extent.hasContents = false;
  ++extent.version;
  top = slot;
  ++m_freeCount;
}

std::vector<SwapSlots::View> SwapSlots::Extents() const {
  std::vector<View> views;
  for (std::int64_t slot = 0; slot < m_used; ++slot) {
    const Extent& extent = At(slot);
    if (extent.size > 0) views.push_back({slot, extent.size, extent.free});
  }
  return views;
}

}  // namespace korin::vm
