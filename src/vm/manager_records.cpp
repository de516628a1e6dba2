// Records of blocks in memory: how they come, and how they go to the swap file.
#include <algorithm>
#include <cstring>

#include "korinimage/exceptions.h"
#include "vm/manager_impl.h"

using korin::AllocationFigures;
using korin::CVmMemoryAllocationError;
using korin::vm::PagingLock;
using korin::vm::SwapSlots;

namespace {

constexpr std::int64_t kWorthDiscarding = 1 << 20;

}  // namespace

// What a victim left, or new; none when there is none, which `refused` tells when it
// is the system's doing.
CVmManagerImpl::BlockMemory CVmManagerImpl::TakeMemory(std::int64_t bytes, bool* refused) {
  if (m_spare.memory && m_spare.bytes == bytes) return std::exchange(m_spare, {});
  m_spare = {};  // first: the two together may be more than the budget
  BlockMemory taken;
  auto memory = m_seams.memory ? m_seams.memory(bytes) : CVmMemoryInterface::Alloc(bytes);
  if (!memory) return taken;
  if (!memory->IsValid()) {
    korin::vm::LastPagingFailure().Set(
        "the system refused memory for a block of " + std::to_string(bytes) + " bytes",
        AllocationFigures{bytes, m_nMemoryUsed * m_nBlockSize, m_nCapacity * m_nBlockSize});
    if (refused != nullptr) *refused = true;
    return taken;
  }
  // A memory of another kind than the process's own comes zeroed.
  const auto* own = dynamic_cast<const CVmWin32Memory*>(memory.get());
  taken.zeroed = own == nullptr || own->IsZeroed();
  taken.bytes = bytes;
  taken.address = static_cast<BYTE*>(memory->GetAddress());
  taken.memory = std::move(memory);
  return taken;
}

// A record with memory for the block, not yet the block's place; null when the
// budget has no room for it or the system refuses the memory, which `refused` tells.
CVmManagerImpl::Record* CVmManagerImpl::CreateRecord(CVmHandle& handle, std::int64_t index,
                                                     bool* refused) {
  const std::int64_t bytes = handle.GetBlockSize();
  const std::int64_t size = BlocksOf(bytes);
  if (size > m_nCapacity - m_nMemoryUsed) {
    m_spare = {};
    return nullptr;
  }
  BlockMemory taken = TakeMemory(bytes, refused);
  if (!taken.memory) return nullptr;
  Record& record = m_records.Take();
  try {
    m_copies.Enter(size, m_records.KeyCount());
  } catch (...) {
    m_records.Release(record);
    throw;
  }
  record.memory.m_pMemory = std::move(taken.memory);
  record.address = taken.address;
  record.zeroed = taken.zeroed;
  record.memory.m_nSize = size;
  record.memory.m_pHandle = &handle;
  record.memory.m_nIndex = index;
  m_nMemoryUsed += size;
  return &record;
}

void CVmManagerImpl::ZeroRecord(Record& record) {
  if (record.zeroed) return;
  const std::int64_t bytes = record.memory.m_pHandle->GetBlockSize();
  std::memset(record.address, 0, static_cast<std::size_t>(bytes));
}

void CVmManagerImpl::CommitRecord(Record& record) noexcept {
  record.memory.m_pHandle->Set(record.memory.m_nIndex, CVmBlock::Type::Memory, record.key);
  m_evictable.Add(record);
}

void CVmManagerImpl::DropRecord(Record& record) noexcept {
  if (m_evictable.Has(record)) m_evictable.Remove(record);
  if (HoldOf(record) == Hold::kPinned) m_nPinnedBlocks -= record.memory.m_nSize;
  m_copies.Remove(record);
  m_copies.Leave(record.memory.m_nSize);
  m_nMemoryUsed -= record.memory.m_nSize;
  m_records.Release(record);
}

// Evicts the least recently used records that nobody holds until `blocks` manager
// blocks are free. `unplaced`: set to the size of a record that found no place in
// the swap file.
bool CVmManagerImpl::EvictFor(std::int64_t blocks, std::int64_t& unplaced) {
  if (!m_evictable.Choose(blocks, m_victims)) return false;
  // Written in the order of their keys, which is near that of their slots.
  std::sort(m_victims.begin(), m_victims.end());
  const bool all = std::all_of(m_victims.begin(), m_victims.end(), [&](std::int64_t key) {
    return SwapOut(m_records.At(key), unplaced);
  });
  if (!all) m_spare = {};
  return all;
}

// On failure the record stays as it is, in memory and modified. Zeros that were never
// written into memory are not written to the file either: an extent without contents
// reads as zeros.
bool CVmManagerImpl::SwapOut(Record& record, std::int64_t& unplaced) {
  CVmMemory& memory = record.memory;
  std::int64_t slot = memory.m_nSwapSlot;
  if (slot != SwapSlots::kNone) {
    if (memory.m_modified && !Transfer(true, slot, record)) return false;
  } else if ((slot = m_slots.FindFree(memory.m_nSize)) != SwapSlots::kNone) {
    if (record.awaitsZeros) {
      if (!ReuseSlot(slot, memory.m_nSize)) return false;
    } else {
      if (!Transfer(true, slot, record)) return false;
      m_slots.TakeFree(slot);
    }
  } else {
    slot = m_slots.Used();
    if (!m_slots.HasRoom(memory.m_nSize)) PagingLock::Say("Disk limit has been reached.");
    if (!ReserveSwapEnd(memory.m_nSize)) {
      unplaced = memory.m_nSize;
      return false;
    }
    if (!record.awaitsZeros && !Transfer(true, slot, record)) return false;
    m_slots.Append(memory.m_nSize);
  }
  if (!record.awaitsZeros && (slot != memory.m_nSwapSlot || memory.m_modified)) {
    m_slots.SetContents(slot);
  }
  memory.m_pHandle->Set(memory.m_nIndex, CVmBlock::Type::Swap, slot);
  if (!m_seams.memory) {
    m_spare = {std::move(memory.m_pMemory), memory.m_pHandle->GetBlockSize(), record.address};
  }
  DropRecord(record);
  return true;
}

// One record gives its copy in the swap file up, so that another can be written
// there; it must be written again itself then.
bool CVmManagerImpl::GiveUpCopy(std::int64_t size) noexcept {
  const std::int64_t key = m_copies.Choose(size);
  if (key < 0) return false;
  Record& record = m_records.At(key);
  m_copies.Remove(record);
  FreeSlot(std::exchange(record.memory.m_nSwapSlot, SwapSlots::kNone), record.memory.m_nSize);
  record.memory.m_modified = true;
  return true;
}

// The disk space of large freed extents goes back to the volume: they fit nothing
// but blocks of exactly their size and may wait long for one.
void CVmManagerImpl::FreeSlot(std::int64_t slot, std::int64_t size) noexcept {
  const bool written = m_slots.HasContents(slot);
  m_slots.Free(slot);
  if (written && size * m_nBlockSize >= kWorthDiscarding) {
    m_pSwap->Discard(slot * m_nBlockSize, size * m_nBlockSize);
  }
}

// A free extent becomes the place of a block that is not written yet; the volume
// must have room for it now, not when it is evicted.
bool CVmManagerImpl::ReuseSlot(std::int64_t slot, std::int64_t size) {
  if (size * m_nBlockSize >= kWorthDiscarding &&
      !m_pSwap->Reserve(slot * m_nBlockSize, size * m_nBlockSize)) {
    korin::vm::LastPagingFailure().Set("the swap file cannot be used: " + m_pSwap->GetError(),
                                       AllocationFigures{size * m_nBlockSize, -1, -1});
    return false;
  }
  m_slots.TakeFree(slot);
  return true;
}

// Makes the file long enough for an extent at its end.
bool CVmManagerImpl::ReserveSwapEnd(std::int64_t size) {
  auto& failure = korin::vm::LastPagingFailure();
  if (!m_slots.HasRoom(size)) {
    failure.text = "the swap file has reached its limit (setting MaxDiskSize, or free disk space)";
    failure.figures = {size * m_nBlockSize, m_slots.Used() * m_nBlockSize,
                       m_slots.Limit() * m_nBlockSize};
    return false;
  }
  if (m_pSwap && m_pSwap->Truncate((m_slots.Used() + size) * m_nBlockSize)) return true;
  failure.text = "the swap file cannot grow: " + (m_pSwap ? m_pSwap->GetError() : "none is open");
  failure.figures = {size * m_nBlockSize, m_slots.Used() * m_nBlockSize,
                     m_slots.Limit() * m_nBlockSize};
  return false;
}

// Moves the block's own bytes between the record and its slot.
bool CVmManagerImpl::Transfer(bool write, std::int64_t slot, Record& record) {
  constexpr std::int64_t kPiece = 1 << 30;  // one call must stay below 4 GiB
  const std::int64_t bytes = record.memory.m_pHandle->GetBlockSize();
  bool moved = m_pSwap && m_pSwap->Seek(slot * m_nBlockSize);
  for (std::int64_t at = 0; moved && at < bytes; at += kPiece) {
    const std::int64_t size = std::min(bytes - at, kPiece);
    BYTE* const piece = record.address + at;
    moved = write ? m_pSwap->Write(piece, size) : m_pSwap->Read(piece, size);
  }
  if (moved) return true;
  korin::vm::LastPagingFailure().Set(std::string("a block of ") + std::to_string(bytes) +
                                         " bytes cannot be " + (write ? "written: " : "read: ") +
                                         (m_pSwap ? m_pSwap->GetError() : "no swap file"),
                                     AllocationFigures{bytes, -1, -1});
  return false;
}
