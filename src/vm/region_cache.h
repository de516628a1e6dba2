#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "vm/intrusive_list.h"

namespace korin::vm {

// Where the memory of blocks comes from: chunks of the system's memory, each cut
// into regions of one size class. A system mapping per block would run into the
// limit on mappings of a process, and fresh pages cost as much as reading a block
// does; so regions given back are kept, warm, up to a bound.
//
// One per process, shared by all managers. Thread safe. Its mutex is taken inside
// a manager's, never the other way round.
class RegionCache {
 public:
  struct Taken {
    void* address = nullptr;  // null: the system refused
    bool zeroed = false;      // every byte is zero
  };
  // Bytes now.
  struct Figures {
    std::int64_t inUse = 0;     // handed out
    std::int64_t warmFree = 0;  // free, but still backed by physical memory
    std::int64_t mapped = 0;    // held from the system
  };

  static RegionCache& Instance();

  RegionCache() = default;
  RegionCache(const RegionCache&) = delete;
  RegionCache& operator=(const RegionCache&) = delete;
  ~RegionCache();

  // At least `size` bytes (> 0), aligned to 16; whole pages from 64 KiB on.
  Taken Take(std::int64_t size) noexcept;
  // `address` comes from Take of this cache.
  void Give(void* address) noexcept;

  Figures GetFigures() const;

  // Nothing is kept from now on, only what is in use.
  void AtUnload() noexcept;

 private:
  struct Chunk;
  struct SizeClass;
  struct Region {
    Chunk* chunk = nullptr;
    ListLink<Region> byClass;
    ListLink<Region> byAge;  // linked while warm
    bool inUse = false;
    bool zeroed = false;
  };
  using ClassList = IntrusiveList<Region, &Region::byClass>;
  struct SizeClass {
    std::int64_t size = 0;
    ClassList warm;  // most recently freed first
    ClassList cold;  // never used, or its physical memory given back
  };
  struct Chunk {
    char* base = nullptr;
    std::int64_t bytes = 0;
    SizeClass* owner = nullptr;
    std::vector<Region> regions;
    std::size_t used = 0;
  };

  bool AddChunk(SizeClass& sizes);
  void DropChunk(Chunk& chunk);
  bool DropUnused();
  void Trim();
  void MakeCold(Region& region, bool zeroed);
  char* Address(const Region& region) const;

  mutable std::mutex m_mutex;
  std::map<std::int64_t, SizeClass> m_classes;
  std::map<const char*, std::unique_ptr<Chunk>> m_chunks;  // by base address
  IntrusiveList<Region, &Region::byAge> m_warmByAge;       // longest free first
  Figures m_figures;
  std::int64_t m_peakInUse = 0;
  bool m_ended = false;
};

}  // namespace korin::vm
