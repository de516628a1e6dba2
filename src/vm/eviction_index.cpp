#include "vm/eviction_index.h"

#include <utility>

namespace korin::vm {

namespace {

// A record whose hold ends is nearly the newest: it finds its place in the list
// within a few steps from the end, or goes to the set.
constexpr int kStepsBack = 8;

}  // namespace

void EvictionIndex::Add(Record& record) noexcept {
  m_size += record.memory.m_nSize;
  const std::int64_t stamp = record.memory.m_nStamp;
  if (stamp >= 0) {
    Record* place = m_list.Last();
    for (int step = 0; step < kStepsBack; ++step) {
      if (place == nullptr || place->memory.m_nStamp < stamp) {
        m_list.InsertAfter(place, record);
        return;
      }
      place = AccessList::Previous(*place);
    }
  }
  record.stampNode.value() = {stamp, record.key, &record};
  record.stampPlace = m_set.insert(std::move(record.stampNode)).position;
  record.inStampSet = true;
}

void EvictionIndex::Remove(Record& record) noexcept {
  m_size -= record.memory.m_nSize;
  if (record.inStampSet) {
    record.stampNode = m_set.extract(record.stampPlace);
    record.inStampSet = false;
  } else {
    m_list.Remove(record);
  }
}

void EvictionIndex::Touch(Record& record, std::int64_t stamp) noexcept {
  if (m_list.Last() == &record) {
    record.memory.m_nStamp = stamp;
    return;
  }
  Remove(record);
  record.memory.m_nStamp = stamp;
  m_list.PushBack(record);
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
      inList = AccessList::Next(*inList);
    }
    keys.push_back(next->key);
    sum += next->memory.m_nSize;
  }
  return true;
}

}  // namespace korin::vm
