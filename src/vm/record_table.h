#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "korinimage/vm_memory.h"
#include "vm/intrusive_list.h"
#include "vm/key_set.h"

namespace korin::vm {

struct Record;

// An entry of the index by last use.
struct StampOrder {
  std::int64_t stamp = 0;
  std::int64_t key = 0;
  Record* record = nullptr;
  bool operator<(const StampOrder& other) const {
    return std::pair(stamp, key) < std::pair(other.stamp, other.key);
  }
};

// A record's place in that index. The node is made with the record, so that entering
// and leaving the index never fails.
struct StampPlace {
  std::set<StampOrder>::iterator at;       // valid while the record is in the index
  std::set<StampOrder>::node_type parked;  // owned here while it is not
};

// A block in memory, with its places in the manager's indices. What a miss touches of
// its victim is two cache lines side by side.
struct alignas(64) Record {
  // The list or index in which the record stands.
  enum class Place : std::uint8_t { kNone, kAccessList, kStampSet, kFreeList };

  std::int64_t key = -1;
  CVmMemory memory;
  BYTE* address = nullptr;  // of the memory
  ListLink<Record> link;    // in access order, or among the free
  std::unique_ptr<StampPlace> stampPlace;
  Place place = Place::kNone;
  bool zeroed = false;       // every byte of the memory was zero when it was taken
  bool awaitsZeros = false;  // stands for zeros, but they are not written into its memory yet
  bool inCopyIndex = false;
};
static_assert(sizeof(Record) <= 128);

using RecordList = IntrusiveList<Record, &Record::link>;

// The manager's memory table: records addressed by key. Keys of released records
// are used again, longest free first; else a new one is made. A record keeps its
// address for ever.
class RecordTable {
 public:
  // Takes a key. Its record is at the defaults. Strong guarantee.
  Record& Take();
  // Resets the record, its memory included, and queues its key behind the others.
  void Release(Record& record) noexcept;
  Record& At(std::int64_t key) {
    const auto at = static_cast<std::size_t>(key);
    return (*m_pieces[at / kPiece])[at % kPiece];
  }
  // Keys ever made; records of free keys among them.
  std::int64_t KeyCount() const { return m_count; }
  static bool IsFree(const Record& record) { return record.place == Record::Place::kFreeList; }

 private:
  static constexpr std::size_t kPiece = 64;
  using Piece = std::array<Record, kPiece>;

  std::vector<std::unique_ptr<Piece>> m_pieces;
  std::int64_t m_count = 0;
  RecordList m_free;
};

// Records that hold a copy of their block in the swap file, for giving one up.
class CopyIndex {
 public:
  // To be told before a record of `size` blocks comes, with a key below `end`, and once
  // it is gone. Strong guarantee.
  void Enter(std::int64_t size, std::int64_t end);
  void Leave(std::int64_t size) noexcept;

  void Add(Record& record) noexcept;
  void Remove(Record& record) noexcept;  // nothing when it is not in
  // The smallest key among copies of exactly `size` blocks, else among all; -1: there
  // is none.
  std::int64_t Choose(std::int64_t size) const;

 private:
  struct OfSize {
    KeySet copies;
    std::int64_t records = 0;
  };

  std::map<std::int64_t, OfSize> m_sizes;
};

}  // namespace korin::vm
