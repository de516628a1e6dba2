#include "vm/eviction_index.h"

#include <utility>

namespace korin::vm {

namespace {

// A record whose hold ends is nearly the newest: it finds its place in the list
// within a few steps from the end, or goes to the set.
constexpr int kStepsBack = 8;

// Brings the victim of the miss after next into the caches; the next one is there by now.
void FetchAhead(const Record* next) {
  const Record* afterNext = next == nullptr ? nullptr : RecordList::Next(*next);
  if (afterNext == nullptr) return;
  const char* const bytes = reinterpret_cast<const char*>(afterNext);
  __builtin_prefetch(bytes);
  __builtin_prefetch(bytes + 64);
}

}  // namespace

void EvictionIndex::Add(Record& record) noexcept {
  m_size += record.memory.m_nSize;
  const std::int64_t stamp = record.memory.m_nStamp;
  if (stamp >= 0) {
    Record* place = m_list.Last();
    for (int step = 0; step < kStepsBack; ++step) {
      if (place == nullptr || place->memory.m_nStamp < stamp) {
        InsertInList(place, record);
        return;
      }
      place = RecordList::Previous(*place);
    }
  }
  StampPlace& inSet = *record.stampPlace;
  inSet.parked.value() = {stamp, record.key, &record};
  inSet.at = m_set.insert(std::move(inSet.parked)).position;
  record.place = Record::Place::kStampSet;
}

void EvictionIndex::InsertInList(Record* after, Record& record) noexcept {
  m_list.InsertAfter(after, record);
  record.place = Record::Place::kAccessList;
}

void EvictionIndex::Remove(Record& record) noexcept {
  m_size -= record.memory.m_nSize;
  if (record.place == Record::Place::kStampSet) {
    StampPlace& inSet = *record.stampPlace;
    inSet.parked = m_set.extract(inSet.at);
  } else {
    m_list.Remove(record);
  }
  record.place = Record::Place::kNone;
}

void EvictionIndex::Touch(Record& record, std::int64_t stamp) noexcept {
  if (m_list.Last() == &record) {
    record.memory.m_nStamp = stamp;
    return;
  }
  Remove(record);
  record.memory.m_nStamp = stamp;
  InsertInList(m_list.Last(), record);
  m_size += record.memory.m_nSize;
}

bool EvictionIndex::Choose(std::int64_t needed, std::vector<std::int64_t>& keys) const {
  keys.clear();
  if (m_size < needed) return false;
  const Record* inList = m_list.First();
  auto inSet = m_set.begin();
  for (std::int64_t sum = 0; sum < needed;) {
    const bool takeSet =
        inList == nullptr ||
        (inSet != m_set.end() && *inSet < StampOrder{inList->memory.m_nStamp, inList->key});
    const Record* next = takeSet ? inSet->record : inList;
    if (takeSet) {
      ++inSet;
    } else {
      inList = RecordList::Next(*inList);
    }
    keys.push_back(next->key);
    sum += next->memory.m_nSize;
  }
  FetchAhead(inList);
  return true;
}

}  // namespace korin::vm
