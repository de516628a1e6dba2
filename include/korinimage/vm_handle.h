#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "korinimage/export.h"

class CVmManager;

// One block slot of an allocation.
class KORINIMAGE_API CVmBlock {
 public:
  enum class Type : std::int32_t {
    None = 0,    // not placed
    Memory = 1,  // in memory; the slot index is the key of its memory record
    Swap = 2,    // in the swap file; the slot index is its swap slot
  };

  Type m_type = Type::None;
  std::int64_t m_nSlot = -1;
};

// One allocation: all blocks of one image. Made by the manager and held by
// shared pointer; refers to its manager weakly and may outlive it.
//
// A copy is a description only: the manager knows the object that it made and
// refuses any other. Members are not synchronised; the manager changes blocks
// under its lock.
class KORINIMAGE_API CVmHandle {
 public:
  // `blockCount` unplaced blocks of `blockSize` bytes. Throws std::length_error
  // for a negative size or count and for more than 268435455 blocks.
  CVmHandle(std::int64_t blockSize, std::int64_t blockCount, std::shared_ptr<CVmManager> manager);
  CVmHandle(const CVmHandle&) = default;
  CVmHandle& operator=(const CVmHandle&) = delete;
  virtual ~CVmHandle();

  // `index` is 0 <= index < GetBlockCount(), not checked.
  void Set(std::int64_t index, CVmBlock::Type type, std::int64_t slot);
  CVmBlock::Type GetType(std::int64_t index) const;
  std::int64_t GetSlotIndex(std::int64_t index) const;

  std::int64_t GetBlockCount() const { return m_nBlockCount; }
  std::int64_t GetBlockSize() const { return m_nBlockSize; }  // bytes

  // The owning manager; empty once the handle was released or the manager is gone.
  std::shared_ptr<CVmManager> VmManager() const { return m_pManager.lock(); }
  bool Deleted() const { return m_pManager.expired(); }

 protected:
  friend class CVmManager;
  void Delete() { m_pManager.reset(); }

 private:
  std::weak_ptr<CVmManager> m_pManager;
  std::int64_t m_nBlockSize;
  std::int64_t m_nBlockCount;
  std::vector<CVmBlock> m_blocks;
};
