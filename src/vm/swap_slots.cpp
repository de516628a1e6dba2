#include "vm/swap_slots.h"

#include <algorithm>

namespace korin::vm {

std::int64_t SwapSlots::FindFree(std::int64_t size) const {
  const auto found = m_freeBySize.find(size);
  return found == m_freeBySize.end() ? kNone : found->second;
}

void SwapSlots::TakeFree(std::int64_t slot) noexcept {
  Extent& extent = m_extents.find(slot)->second;
  m_freeBySize.find(extent.size)->second = extent.nextFree;
  extent.free = false;
  --m_freeCount;
}

std::int64_t SwapSlots::Append(std::int64_t size) {
  m_freeBySize.try_emplace(size, kNone);  // so that freeing it allocates nothing
  const std::int64_t slot = m_used;
  m_extents[slot].size = size;
  m_used += size;
  return slot;
}

void SwapSlots::Free(std::int64_t slot) noexcept {
  Extent& extent = m_extents.find(slot)->second;
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
  for (const auto& [slot, extent] : m_extents) views.push_back({slot, extent.size, extent.free});
  std::sort(views.begin(), views.end(),
            [](const View& a, const View& b) { return a.slot < b.slot; });
  return views;
}

}  // namespace korin::vm
