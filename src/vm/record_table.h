#pragma once

#include <cstdint>
#include <deque>
#include <set>
#include <utility>

#include "korinimage/vm_memory.h"
#include "vm/intrusive_list.h"

namespace korin::vm {

struct Record;

// Entries of the two ordered indices that a record may stand in. Their nodes are
// made with the record, so that entering and leaving an index never fails.
struct StampOrder {
  std::int64_t stamp = 0;
  std::int64_t key = 0;
  Record* record = nullptr;
  bool operator<(const StampOrder& other) const {
    return std::pair(stamp, key) < std::pair(other.stamp, other.key);
  }
};
struct CopyOrder {
  std::int64_t size = 0;
  std::int64_t key = 0;
  Record* record = nullptr;
  bool operator<(const CopyOrder& other) const {
    return std::pair(size, key) < std::pair(other.size, other.key);
  }
};

// A block in memory, with its places in the manager's indices.
struct Record {
  std::int64_t key = -1;
  CVmMemory memory;
  std::int64_t bytes = 0;    // of the block itself; the rest of its manager blocks is unused
  bool awaitsZeros = false;  // stands for zeros, but they are not written into its memory yet

  ListLink<Record> byAccess;                  // linked: evictable, in access order
  std::set<StampOrder>::iterator stampPlace;  // valid while `inStampSet`
  std::set<StampOrder>::node_type stampNode;  // owned here while not in the set
  std::set<CopyOrder>::iterator copyPlace;    // valid while `inCopySet`
  std::set<CopyOrder>::node_type copyNode;
  bool inStampSet = false;
  bool inCopySet = false;

  ListLink<Record> byFree;  // linked: the key is free
};

// The manager's memory table: records addressed by key. Keys of released records
// are used again, longest free first; else a new one is made. A record keeps its
// address for ever.
class RecordTable {
 public:
  // Takes a key. Its record is at the defaults. Strong guarantee.
  Record& Take();
  // Resets the record, its memory included, and queues its key behind the others.
  void Release(Record& record) noexcept;
  Record& At(std::int64_t key) { return m_records[static_cast<std::size_t>(key)]; }
  // Keys ever made; records of free keys among them.
  std::int64_t KeyCount() const { return static_cast<std::int64_t>(m_records.size()); }
  static bool IsFree(const Record& record) { return FreeList::Has(record); }

 private:
  using FreeList = IntrusiveList<Record, &Record::byFree>;

  std::deque<Record> m_records;
  FreeList m_free;
};

// Records that hold a copy of their block in the swap file, for giving one up.
class CopyIndex {
 public:
  void Add(Record& record) noexcept;
  void Remove(Record& record) noexcept;  // nothing when it is not in
  // The smallest key among copies of exactly `size` blocks, else among all; null:
  // there is none.
  Record* Choose(std::int64_t size) const;

 private:
  std::set<CopyOrder> m_set;
};

}  // namespace korin::vm
