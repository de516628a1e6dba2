#include "vm/record_table.h"

#include <iterator>

namespace korin::vm {

Record& RecordTable::Take() {
  if (Record* record = m_free.First()) {
    m_free.Remove(*record);
    record->place = Record::Place::kNone;
    return *record;
  }
  if (m_count == static_cast<std::int64_t>(m_pieces.size() * kPiece)) {
    m_pieces.push_back(std::make_unique<Piece>());
  }
  Record& record = At(m_count);
  auto place = std::make_unique<StampPlace>();
  std::set<StampOrder> stamps{{0, 0, &record}};
  place->parked = stamps.extract(stamps.begin());
  record.stampPlace = std::move(place);
  record.key = m_count++;
  return record;
}

void RecordTable::Release(Record& record) noexcept {
  record.memory.Reset();
  record.address = nullptr;
  record.zeroed = record.awaitsZeros = false;
  m_free.PushBack(record);
  record.place = Record::Place::kFreeList;
}

void CopyIndex::Enter(std::int64_t size, std::int64_t end) {
  auto found = m_sizes.find(size);
  if (found == m_sizes.end()) {
    // Sizes that nothing has any more go only now: those of a budget of one block would
    // come and go with every block.
    std::erase_if(m_sizes, [](const auto& entry) { return entry.second.records == 0; });
    found = m_sizes.try_emplace(size).first;
  }
  found->second.copies.Reserve(end);
  ++found->second.records;
}

void CopyIndex::Leave(std::int64_t size) noexcept { --m_sizes.find(size)->second.records; }

void CopyIndex::Add(Record& record) noexcept {
  m_sizes.find(record.memory.m_nSize)->second.copies.Add(record.key);
  record.inCopyIndex = true;
}

void CopyIndex::Remove(Record& record) noexcept {
  if (!record.inCopyIndex) return;
  m_sizes.find(record.memory.m_nSize)->second.copies.Remove(record.key);
  record.inCopyIndex = false;
}

std::int64_t CopyIndex::Choose(std::int64_t size) const {
  const auto exact = m_sizes.find(size);
  std::int64_t smallest = exact == m_sizes.end() ? -1 : exact->second.copies.First();
  if (smallest >= 0) return smallest;
  for (const auto& [other, records] : m_sizes) {
    const std::int64_t key = records.copies.First();
    if (key >= 0 && (smallest < 0 || key < smallest)) smallest = key;
  }
  return smallest;
}

}  // namespace korin::vm
