#include "vm/record_table.h"

#include <limits>

namespace korin::vm {

Record& RecordTable::Take() {
  if (Record* record = m_free.First()) {
    m_free.Remove(*record);
    return *record;
  }
  Record& record = m_records.emplace_back();
  try {
    std::set<StampOrder> stamps{{0, 0, &record}};
    record.stampNode = stamps.extract(stamps.begin());
    std::set<CopyOrder> copies{{0, 0, &record}};
    record.copyNode = copies.extract(copies.begin());
  } catch (...) {
    m_records.pop_back();
    throw;
  }
  record.key = KeyCount() - 1;
  return record;
}

void RecordTable::Release(Record& record) noexcept {
  record.memory.Reset();
  record.bytes = 0;
  record.awaitsZeros = false;
  m_free.PushBack(record);
}

void CopyIndex::Add(Record& record) noexcept {
  record.copyNode.value() = {record.memory.m_nSize, record.key, &record};
  record.copyPlace = m_set.insert(std::move(record.copyNode)).position;
  record.inCopySet = true;
}

void CopyIndex::Remove(Record& record) noexcept {
  if (!record.inCopySet) return;
  record.copyNode = m_set.extract(record.copyPlace);
  record.inCopySet = false;
}

Record* CopyIndex::Choose(std::int64_t size) const {
  constexpr std::int64_t kFirst = std::numeric_limits<std::int64_t>::min();
  const auto exact = m_set.lower_bound({size, kFirst});
  if (exact != m_set.end() && exact->size == size) return exact->record;
  // One step per size that occurs: the first entry of each has its smallest key.
  Record* smallest = nullptr;
  for (auto at = m_set.begin(); at != m_set.end(); at = m_set.lower_bound({at->size + 1, kFirst})) {
    if (smallest == nullptr || at->key < smallest->key) smallest = at->record;
  }
  return smallest;
}

}  // namespace korin::vm
