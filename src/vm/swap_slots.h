#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace korin::vm {

// Who has which part of a swap file. Counts in manager blocks: a slot number is
// the first block of an extent, and its bytes begin at slot * block size. The file
// only grows; freed extents are neither merged nor split and serve again for
// exactly their size, the most recently freed first.
//
// Bookkeeping only, no input or output. Freeing and taking never fail.
class SwapSlots {
 public:
  static constexpr std::int64_t kNone = -1;

  // Blocks up to the end of the file, the highest it ever was.
  std::int64_t Used() const { return m_used; }
  std::int64_t Limit() const { return m_limit; }
  void SetLimit(std::int64_t blocks) { m_limit = blocks; }
  bool HasRoom(std::int64_t size) const { return size <= m_limit - m_used; }

  // The free extent of exactly `size` blocks that was freed last; kNone: none.
  std::int64_t FindFree(std::int64_t size) const;
  bool HasFree() const { return m_freeCount > 0; }
  void TakeFree(std::int64_t slot) noexcept;
  // A new extent at the end; there must be room. Strong guarantee.
  std::int64_t Append(std::int64_t size);
  // Its contents are gone with it.
  void Free(std::int64_t slot) noexcept;

  // False until the extent is written: such an extent reads as zeros.
  bool HasContents(std::int64_t slot) const { return At(slot).hasContents; }
  void SetContents(std::int64_t slot) {
    Extent& extent = At(slot);
    extent.hasContents = true;
    ++extent.version;
  }
  // Changes whenever the extent is written or freed.
  std::int64_t Version(std::int64_t slot) const { return At(slot).version; }

  struct View {
    std::int64_t slot = 0;
    std::int64_t size = 0;
    bool free = false;
  };
  // All extents, ascending by slot.
  std::vector<View> Extents() const;

 private:
  struct Extent {
    std::int64_t size = 0;          // 0: not the first block of an extent
    std::int64_t nextFree = kNone;  // below this one on the stack of its size
    std::int64_t version : 62 = 0;
    bool free : 1 = false;
    bool hasContents : 1 = false;
  };

  Extent& At(std::int64_t slot) { return m_extents[static_cast<std::size_t>(slot)]; }
  const Extent& At(std::int64_t slot) const { return m_extents[static_cast<std::size_t>(slot)]; }

  std::int64_t m_limit = 0;
  std::int64_t m_used = 0;
  std::int64_t m_freeCount = 0;
  std::vector<Extent> m_extents;                      // by slot
  std::map<std::int64_t, std::int64_t> m_freeBySize;  // top of each size's stack
};

}  // namespace korin::vm
