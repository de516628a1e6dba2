#include <map>

#include "vm/manager_impl.h"

using korin::vm::PagingLock;
using korin::vm::RecordTable;

// Walks everything and compares it with the figures that are kept up to date.
korin::vm::ManagerFigures CVmManagerImpl::Inspect() const {
  const PagingLock lock(m_mutex);
  korin::vm::ManagerFigures figures;
  figures.memoryUsed = m_nMemoryUsed;
  figures.swapUsed = m_slots.Used();
  figures.allocated = m_nAllocated;
  figures.handles = static_cast<std::int64_t>(m_handles.size());
  const auto expect = [&](bool holds, const char* what) {
    if (!holds && figures.fault.empty()) figures.fault = what;
  };

  std::int64_t records = 0, memory = 0, evictable = 0, pinned = 0, allocated = 0, threadPins = 0;
  std::map<std::int64_t, std::int64_t> owned;  // slot -> size, of blocks and copies
  auto& table = const_cast<korin::vm::RecordTable&>(m_records);
  for (const auto& [address, handle] : m_handles) {
    const std::int64_t size = BlocksOf(handle->GetBlockSize());
    allocated += size * handle->GetBlockCount();
    for (std::int64_t i = 0; i < handle->GetBlockCount(); ++i) {
      const std::int64_t slot = handle->GetSlotIndex(i);
      if (handle->GetType(i) == CVmBlock::Type::Swap) {
        expect(owned.emplace(slot, size).second, "a slot has two owners");
      } else if (handle->GetType(i) == CVmBlock::Type::Memory) {
        const Record& record = table.At(slot);
        const Hold hold = HoldOf(record);
        ++records;
        memory += record.memory.m_nSize;
        if (hold == Hold::kNone) evictable += record.memory.m_nSize;
        if (hold == Hold::kPinned) pinned += record.memory.m_nSize;
        figures.pins += record.memory.m_nPin;
        expect(!RecordTable::IsFree(record), "a block refers to a free record");
        expect(record.memory.m_pHandle == handle.get() && record.memory.m_nIndex == i,
               "a record refers to another block");
        expect(record.memory.m_nSize == size, "a record has another size than its block");
        expect(record.memory.m_pMemory->GetAddress() == record.address,
               "a record has another address than its memory");
        expect((hold == Hold::kNone) == m_evictable.Has(record),
               "the eviction index does not follow the holds");
        expect(record.inCopyIndex == (record.memory.m_nSwapSlot >= 0),
               "the copy index does not follow the copies");
        if (record.memory.m_nSwapSlot >= 0) {
          expect(owned.emplace(record.memory.m_nSwapSlot, size).second, "a slot has two owners");
        }
      } else {
        expect(false, "a block of a complete handle has no place");
      }
    }
  }
  std::int64_t live = 0;
  for (std::int64_t key = 0; key < table.KeyCount(); ++key) {
    if (!RecordTable::IsFree(table.At(key))) ++live;
  }
  for (const auto& [thread, pins] : m_pinsByThread) threadPins += pins;
  expect(live == records, "a record belongs to no block");
  expect(memory == m_nMemoryUsed, "memory in use is not the sum of the records");
  expect(memory <= m_nCapacity, "memory in use exceeds the capacity");
  expect(evictable == m_evictable.Size(), "the evictable size is wrong");
  expect(pinned == m_nPinnedBlocks, "the pinned size is wrong");
  expect(figures.pins == threadPins, "the pins of the threads are not those of the records");
  expect(allocated == m_nAllocated, "blocks handed out are not those of the handles");
  expect(m_slots.Used() <= m_slots.Limit(), "the swap file exceeds its limit");

  std::int64_t end = 0;
  for (const auto& extent : m_slots.Extents()) {
    expect(extent.slot == end, "extents overlap or leave a gap");
    end = extent.slot + extent.size;
    const auto owner = owned.find(extent.slot);
    expect((owner != owned.end()) != extent.free, "an extent is lost or has an owner while free");
    expect(owner == owned.end() || owner->second == extent.size,
           "an extent has another size than its block");
    if (extent.free) figures.freeExtents.emplace_back(extent.slot, extent.size);
  }
  expect(end == m_slots.Used(), "the extents do not fill the file");
  return figures;
}
