#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <utility>
#include <vector>

namespace korin::test {

// The paging rules once more, as plainly as they can be said: everything is
// scanned and sorted anew at every step, nothing is indexed, no byte moves. Tests
// compare a manager's every key and slot with it.
class PagingModel {
 public:
  enum class Type { kNone, kMemory, kSwap };
  struct Block {
    Type type = Type::kNone;
    std::int64_t slot = -1;
  };

  PagingModel(std::int64_t capacity, std::int64_t limit) : m_capacity(capacity), m_limit(limit) {}

  bool Alloc(int handle, std::int64_t size, std::int64_t count) {
    std::vector<Block>& blocks = m_handles[handle];
    blocks.resize(static_cast<std::size_t>(count));
    m_sizes[handle] = size;
    for (std::int64_t i = 0; i < count; ++i) {
      if (Create(handle, i) || PlaceInSwap(handle, i)) continue;
      for (std::int64_t j = count; j-- > 0;) ReleaseBlock(handle, j);
      m_handles.erase(handle);
      return false;
    }
    allocated += size * count;
    return true;
  }

  void Release(int handle) {
    const auto count = static_cast<std::int64_t>(m_handles[handle].size());
    allocated -= m_sizes[handle] * count;
    for (std::int64_t i = 0; i < count; ++i) ReleaseBlock(handle, i);
    m_handles.erase(handle);
  }

  bool Fetch(int handle, std::int64_t index, bool modify, bool pin) {
    Block& block = At(handle, index);
    if (block.type == Type::kSwap) {
      const std::int64_t slot = block.slot;
      std::int64_t unplaced = 0;
      if (!Create(handle, index)) {
        MakeRoom(RoomWanted(m_sizes[handle]), &unplaced);
        if (!Create(handle, index)) {
          GiveUpCopy(unplaced);
          MakeRoom(RoomWanted(m_sizes[handle]), &unplaced);
          if (!Create(handle, index)) return false;
        }
      }
      m_table[block.slot].copy = slot;
    }
    Record& record = m_table[block.slot];
    record.stamp = m_access++;
    record.modified = record.modified || modify;
    if (pin) ++record.pins;
    return true;
  }

  bool Lock(int handle, std::int64_t index, bool lock) {
    const Block& block = At(handle, index);
    if (block.type != Type::kMemory) return false;
    std::int64_t& locks = m_table[block.slot].locks;
    locks = std::max<std::int64_t>(locks + (lock ? 1 : -1), 0);
    return true;
  }
  void Unpin(int handle, std::int64_t index) { --m_table[At(handle, index).slot].pins; }
  void UnlockAll(int handle) {
    for (const Block& block : m_handles[handle]) {
      if (block.type == Type::kMemory) m_table[block.slot].locks = 0;
    }
  }
  bool MakeRoom(int handle) {
    std::int64_t unplaced = 0;
    return MakeRoom(m_sizes[handle], &unplaced);
  }

  const Block& Get(int handle, std::int64_t index) { return At(handle, index); }
  std::vector<std::pair<std::int64_t, std::int64_t>> FreeExtents() const {
    auto extents = m_free;
    std::sort(extents.begin(), extents.end());
    return extents;
  }

  std::int64_t memoryUsed = 0;
  std::int64_t swapUsed = 0;
  std::int64_t allocated = 0;
  std::int64_t limitLines = 0;  // "Disk limit has been reached."

 private:
  struct Record {
    std::int64_t size = 1;
    std::int64_t stamp = -1;
    int handle = 0;
    std::int64_t index = 0;
    std::int64_t copy = -1;
    bool modified = false;
    std::int64_t locks = 0;
    std::int64_t pins = 0;
  };

  Block& At(int handle, std::int64_t index) {
    return m_handles[handle][static_cast<std::size_t>(index)];
  }

  bool Create(int handle, std::int64_t index) {
    const std::int64_t size = m_sizes[handle];
    if (memoryUsed + size > m_capacity) return false;
    std::int64_t key = m_nextKey;
    if (m_freeKeys.empty()) {
      ++m_nextKey;
    } else {
      key = m_freeKeys.front();
      m_freeKeys.pop_front();
    }
    m_table[key] = {};
    m_table[key].size = size;
    m_table[key].handle = handle;
    m_table[key].index = index;
    memoryUsed += size;
    At(handle, index) = {Type::kMemory, key};
    return true;
  }

  std::int64_t TakeFree(std::int64_t size) {
    for (std::size_t i = m_free.size(); i-- > 0;) {
      if (m_free[i].second != size) continue;
      const std::int64_t slot = m_free[i].first;
      m_free.erase(m_free.begin() + static_cast<std::ptrdiff_t>(i));
      return slot;
    }
    return -1;
  }

  std::int64_t Append(std::int64_t size) {
    if (swapUsed + size > m_limit) return -1;
    swapUsed += size;
    return swapUsed - size;
  }

  bool PlaceInSwap(int handle, std::int64_t index) {
    const std::int64_t size = m_sizes[handle];
    if (m_free.empty() && swapUsed >= m_limit && !GiveUpCopy(size)) return false;
    std::int64_t slot = TakeFree(size);
    if (slot < 0) slot = Append(size);
    if (slot < 0) return false;
    At(handle, index) = {Type::kSwap, slot};
    return true;
  }

  bool GiveUpCopy(std::int64_t size) {
    for (const bool exact : {true, false}) {
      for (auto& [key, record] : m_table) {  // ascending keys
        if (record.copy < 0 || (exact && record.size != size)) continue;
        m_free.emplace_back(record.copy, record.size);
        record.copy = -1;
        record.modified = true;
        return true;
      }
    }
    return false;
  }

  // A block also comes where less than its size may go, if that is enough.
  std::int64_t RoomWanted(std::int64_t size) const {
    std::int64_t evictable = 0;
    for (const auto& [key, record] : m_table) {
      if (record.locks <= 0 && record.pins == 0) evictable += record.size;
    }
    return evictable < size ? size - (m_capacity - memoryUsed) : size;
  }

  bool MakeRoom(std::int64_t needed, std::int64_t* unplaced) {
    std::vector<std::pair<std::int64_t, std::int64_t>> order;  // (stamp, key)
    for (const auto& [key, record] : m_table) {
      if (record.locks <= 0 && record.pins == 0) order.emplace_back(record.stamp, key);
    }
    std::sort(order.begin(), order.end());
    std::set<std::int64_t> victims;
    std::int64_t sum = 0;
    for (std::size_t i = 0; i < order.size() && sum < needed; ++i) {
      victims.insert(order[i].second);
      sum += m_table[order[i].second].size;
    }
    if (sum < needed) return false;
    for (const std::int64_t key : victims) {
      Record& record = m_table[key];
      std::int64_t slot = record.copy;
      if (slot < 0) slot = TakeFree(record.size);
      if (slot < 0) slot = Append(record.size);
      if (slot < 0) {
        ++limitLines;
        *unplaced = record.size;
        return false;
      }
      At(record.handle, record.index) = {Type::kSwap, slot};
      Drop(key);
    }
    return true;
  }

  void Drop(std::int64_t key) {
    memoryUsed -= m_table[key].size;
    m_table.erase(key);
    m_freeKeys.push_back(key);
  }

  void ReleaseBlock(int handle, std::int64_t index) {
    const Block block = At(handle, index);
    if (block.type == Type::kSwap) m_free.emplace_back(block.slot, m_sizes[handle]);
    if (block.type == Type::kMemory) {
      const Record& record = m_table[block.slot];
      if (record.copy >= 0) m_free.emplace_back(record.copy, record.size);
      Drop(block.slot);
    }
    At(handle, index) = {};
  }

  std::int64_t m_capacity;
  std::int64_t m_limit;
  std::map<int, std::vector<Block>> m_handles;
  std::map<int, std::int64_t> m_sizes;  // manager blocks of one block
  std::map<std::int64_t, Record> m_table;
  std::deque<std::int64_t> m_freeKeys;
  std::int64_t m_nextKey = 0;
  std::vector<std::pair<std::int64_t, std::int64_t>> m_free;
  std::int64_t m_access = 0;
};

}  // namespace korin::test
