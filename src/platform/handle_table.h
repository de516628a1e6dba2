#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace korin::platform {

// Objects behind opaque numbers that are never addresses: the low 16 bits are the
// slot + 1, the bits above count how often the slot was used, so that the handle of
// a removed object is recognised. At most 65,535 objects live at once. Not
// synchronised.
template <typename Object>
class HandleTable {
 public:
  // The handle of the new object, never 0; 0 when the table is full.
  std::uintptr_t Insert(Object object) {
    std::size_t slot = m_slots.size();
    if (m_freeCount >= kFreeBeforeReuse || (slot == kMaxSlots && m_freeCount > 0)) {
      slot = m_firstFree;
      m_slots[slot].object.emplace(std::move(object));
      m_firstFree = m_slots[slot].nextFree;
      --m_freeCount;
    } else {
      if (slot == kMaxSlots) return 0;
      m_slots.push_back({std::move(object), 0, 0});
    }
    return Handle(slot);
  }

  // Null for a handle that is dead or was never given.
  Object* Find(std::uintptr_t handle) {
    const std::size_t slot = (handle & kMaxSlots) - 1;
    const bool lives =
        slot < m_slots.size() && m_slots[slot].object.has_value() && Handle(slot) == handle;
    return lives ? &*m_slots[slot].object : nullptr;
  }

  bool Erase(std::uintptr_t handle) noexcept {
    if (Find(handle) == nullptr) return false;
    Release((handle & kMaxSlots) - 1);
    return true;
  }

  // Forgets the slots of a table without objects, and with them the handles given.
  void Shrink() noexcept {
    if (m_freeCount == m_slots.size()) *this = HandleTable();
  }

  // Erases every object for which condition(object) holds.
  template <typename Condition>
  void EraseIf(Condition condition) noexcept {
    for (std::size_t slot = 0; slot < m_slots.size(); ++slot) {
      if (m_slots[slot].object && condition(*m_slots[slot].object)) Release(slot);
    }
  }

 private:
  static constexpr unsigned kSlotBits = 16;
  static constexpr std::size_t kMaxSlots = 0xFFFF;
  // Slots are reused oldest first and rest a while: handles kept too long meet a hole.
  static constexpr std::size_t kFreeBeforeReuse = 64;

  struct Slot {
    std::optional<Object> object;
    std::uintptr_t uses;
    std::size_t nextFree;
  };

  std::uintptr_t Handle(std::size_t slot) const {
    return m_slots[slot].uses << kSlotBits | (slot + 1);
  }

  void Release(std::size_t slot) noexcept {
    m_slots[slot].object.reset();
    ++m_slots[slot].uses;  // the bits shifted out do not count
    if (m_freeCount++ == 0) {
      m_firstFree = slot;
    } else {
      m_slots[m_lastFree].nextFree = slot;
    }
    m_lastFree = slot;
  }

  std::vector<Slot> m_slots;
  std::size_t m_firstFree = 0;
  std::size_t m_lastFree = 0;
  std::size_t m_freeCount = 0;
};

}  // namespace korin::platform
