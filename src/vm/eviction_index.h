#pragma once

#include <cstdint>
#include <set>
#include <vector>

#include "vm/record_table.h"

namespace korin::vm {

// The records that may be evicted, ordered by last use (ascending stamp, equal
// stamps by ascending key).
//
// A record in use carries the newest stamp, so most of them simply stand in a list
// in access order: a touch moves one to the end. Those that become evictable with
// an older stamp - never touched, or held for long - stand in an ordered set. The
// walk for victims merges the two.
class EvictionIndex {
 public:
  // The record's stamp must not change while it is in, except by Touch.
  void Add(Record& record) noexcept;
  void Remove(Record& record) noexcept;
  static bool Has(const Record& record) {
    return record.place == Record::Place::kAccessList || record.place == Record::Place::kStampSet;
  }
  // Gives a record that is in the newest stamp of all.
  void Touch(Record& record, std::int64_t stamp) noexcept;

  // Manager blocks that evicting all of them would free.
  std::int64_t Size() const { return m_size; }

  // Fills `keys` with the least recently used records whose sizes reach `needed`.
  // False, with no meaning in `keys`, when all of them do not.
  bool Choose(std::int64_t needed, std::vector<std::int64_t>& keys) const;

 private:
  void InsertInList(Record* after, Record& record) noexcept;

  RecordList m_list;
  std::set<StampOrder> m_set;
  std::int64_t m_size = 0;
};

}  // namespace korin::vm
