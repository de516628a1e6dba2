// Blocks on demand: fetching, holding and letting go.
#include <algorithm>

#include "korinimage/exceptions.h"
#include "vm/manager_impl.h"
#include "vm/poison.h"

using korin::vm::LastPagingFailure;
using korin::vm::PagingLock;
using Clock = std::chrono::steady_clock;

namespace {

// The longest that a fetch waits for other threads to let go of blocks. They do so
// as fast as they compute; the bound is for a caller that keeps them from it, by
// holding the manager's mutex itself.
constexpr auto kLongestWait = std::chrono::seconds(20);

}  // namespace

// The handle as the manager made it; null for any other: a copy, one of another
// manager, a released one.
CVmHandle* CVmManagerImpl::Known(const std::shared_ptr<CVmHandle>& handle) const {
  return m_handles.find(handle.get()) == m_handles.end() ? nullptr : handle.get();
}

// The record of a block in memory; null for a block elsewhere or none.
CVmManagerImpl::Record* CVmManagerImpl::RecordOf(const CVmHandle* known, std::int64_t index) {
  if (known == nullptr || index < 0 || index >= known->GetBlockCount()) return nullptr;
  if (known->GetType(index) != CVmBlock::Type::Memory) return nullptr;
  return &m_records.At(known->GetSlotIndex(index));
}

CVmManagerImpl::Hold CVmManagerImpl::HoldOf(const Record& record) {
  if (record.memory.m_nLock > 0) return Hold::kLocked;
  return record.memory.m_nPin > 0 ? Hold::kPinned : Hold::kNone;
}

// Every change of a record's lock or pin count goes through here: the indices
// follow who holds it.
template <typename Change>
void CVmManagerImpl::ChangeHold(Record& record, Change change) noexcept {
  const Hold before = HoldOf(record);
  change(record.memory);
  const Hold after = HoldOf(record);
  if (before == after) return;
  // A pin that became a lock also ends a wait: it is not worth it any more.
  if (m_waiting > 0 && before != Hold::kNone) m_released.notify_all();
  if (before == Hold::kNone) m_evictable.Remove(record);
  if (before == Hold::kPinned) m_nPinnedBlocks -= record.memory.m_nSize;
  if (after == Hold::kPinned) m_nPinnedBlocks += record.memory.m_nSize;
  if (after == Hold::kNone) {
    // Memory that awaits its zeros holds nothing to move; the new one would count as zeroed.
    if (!record.awaitsZeros && korin::vm::MoveAndPoison(record.memory.m_pMemory,
                                                        record.memory.m_pHandle->GetBlockSize())) {
      record.address = static_cast<BYTE*>(record.memory.m_pMemory->GetAddress());
    }
    m_evictable.Add(record);
  }
}

std::int64_t& CVmManagerImpl::PinsOfThisThread() {
  const auto id = std::this_thread::get_id();
  for (auto& [thread, pins] : m_pinsByThread) {
    if (thread == id) return pins;
  }
  // The entry of a thread that holds nothing can serve another.
  for (auto& [thread, pins] : m_pinsByThread) {
    if (pins != 0) continue;
    thread = id;
    return pins;
  }
  return m_pinsByThread.emplace_back(id, 0).second;
}

// True when room lacks only because other threads' guards hold blocks. A thread
// that holds a guard itself never waits, so those that are waited for always go on.
bool CVmManagerImpl::WorthWaiting(std::int64_t blocks) const {
  const std::int64_t withinReach = m_nCapacity - m_nMemoryUsed + m_evictable.Size();
  if (blocks <= withinReach || blocks > withinReach + m_nPinnedBlocks) return false;
  const auto id = std::this_thread::get_id();
  return std::none_of(m_pinsByThread.begin(), m_pinsByThread.end(),
                      [&](const auto& entry) { return entry.first == id && entry.second > 0; });
}

BYTE* CVmManagerImpl::FetchBlock(const std::shared_ptr<CVmHandle>& handle, std::int64_t index,
                                 Fetch fetch) {
  std::shared_ptr<CVmManagerImpl> self;  // while waiting; released after the lock
  PagingLock lock(m_mutex);
  LastPagingFailure().text.clear();
  std::int64_t* pins = fetch.pin ? &PinsOfThisThread() : nullptr;
  CVmHandle* known = Known(handle);
  Record* record = RecordOf(known, index);
  for (Clock::time_point deadline; record == nullptr; record = RecordOf(known, index)) {
    if (known == nullptr || index < 0 || index >= known->GetBlockCount()) return nullptr;
    if (!fetch.bringIn) return nullptr;
    if (WorthWaiting(BlocksOf(known->GetBlockSize()))) {
      if (!self) {
        self = shared_from_this();
        deadline = Clock::now() + kLongestWait;
      }
      ++m_waiting;
      const bool waited = Clock::now() < deadline && lock.Wait(m_released, deadline);
      --m_waiting;
      if (waited) {
        if (fetch.pin) pins = &PinsOfThisThread();
        known = Known(handle);
        continue;
      }
    }
    record = BringIn(*known, index, fetch.overwrite);
    if (record == nullptr) return nullptr;
    break;
  }
  if (record->awaitsZeros && !fetch.overwrite) ZeroRecord(*record);
  record->awaitsZeros = false;
  if (fetch.pin) {
    ChangeHold(*record, [](CVmMemory& memory) { ++memory.m_nPin; });
    ++*pins;
  }
  if (m_evictable.Has(*record)) {
    m_evictable.Touch(*record, m_nAccess);
  } else {
    record->memory.m_nStamp = m_nAccess;
  }
  ++m_nAccess;
  record->memory.m_modified = record->memory.m_modified || fetch.modify;
  return record->address;
}

// How much to evict for a block that memory cannot take as it is: as much as the
// block itself or, where all that may go is less, what the free part lacks.
std::int64_t CVmManagerImpl::RoomWanted(std::int64_t blocks) const {
  const std::int64_t lacking = blocks - (m_nCapacity - m_nMemoryUsed);
  return m_evictable.Size() < blocks ? lacking : blocks;
}

// Memory that the system refuses although the budget has room: what other blocks
// leave need not lie together, so more and more of them go.
CVmManagerImpl::Record* CVmManagerImpl::EvictUntilTaken(CVmHandle& handle, std::int64_t index,
                                                        std::int64_t& unplaced) {
  Record* record = nullptr;
  std::int64_t blocks = BlocksOf(handle.GetBlockSize());
  while (record == nullptr && m_evictable.Size() > 0) {
    if (!EvictFor(std::min(blocks, m_evictable.Size()), unplaced)) break;
    record = CreateRecord(handle, index);
    blocks *= 2;
  }
  return record;
}

// Gives a block of the swap file memory and contents. The file keeps its copy, so
// that an unchanged block need not be written again.
CVmManagerImpl::Record* CVmManagerImpl::BringIn(CVmHandle& handle, std::int64_t index,
                                                bool overwrite) {
  if (handle.GetType(index) != CVmBlock::Type::Swap) return nullptr;
  const std::int64_t size = BlocksOf(handle.GetBlockSize());
  const std::int64_t slot = handle.GetSlotIndex(index);
  std::int64_t unplaced = 0;
  bool refused = false;
  Record* record = CreateRecord(handle, index, &refused);
  if (record == nullptr) {
    EvictFor(RoomWanted(size), unplaced);
    record = CreateRecord(handle, index, &refused);
  }
  if (record == nullptr) {
    GiveUpCopy(unplaced);
    EvictFor(RoomWanted(size), unplaced);
    record = CreateRecord(handle, index, &refused);
  }
  if (record == nullptr && refused) record = EvictUntilTaken(handle, index, unplaced);
  if (record == nullptr) {
    auto& failure = LastPagingFailure();
    if (failure.text.empty()) {
      failure.text = "no room in memory for a block of " + std::to_string(handle.GetBlockSize()) +
                     " bytes: every other block is in use (settings MemoryRatio, MinMemorySize)";
      failure.figures = {handle.GetBlockSize(), m_nMemoryUsed * m_nBlockSize,
                         m_nCapacity * m_nBlockSize};
    }
    return nullptr;
  }
  if (!overwrite) {
    if (!m_slots.HasContents(slot)) {
      ZeroRecord(*record);
    } else if (!Transfer(false, slot, *record)) {
      DropRecord(*record);
      return nullptr;
    }
  }
  record->memory.m_nSwapSlot = slot;
  m_copies.Add(*record);
  record->memory.m_nStamp = m_nAccess;  // the newest of all, as its fetch is
  CommitRecord(*record);
  return record;
}

BYTE* CVmManagerImpl::GetBlockAddress(const std::shared_ptr<CVmHandle>& handle, std::int64_t index,
                                      bool write) {
  return FetchBlock(handle, index, {.modify = write});
}

// The literal flag is for recording managers; what the taker does decides.
BYTE* CVmManagerImpl::MapBlock(const std::shared_ptr<CVmHandle>& handle, std::int64_t index, bool,
                               korin::BlockIntent intent) {
  return FetchBlock(handle, index,
                    {.modify = intent != korin::BlockIntent::Read,
                     .overwrite = intent == korin::BlockIntent::Overwrite,
                     .pin = true});
}

BYTE* CVmManagerImpl::MapResidentBlock(const std::shared_ptr<CVmHandle>& handle,
                                       std::int64_t index) {
  return FetchBlock(handle, index, {.pin = true, .bringIn = false});
}

std::optional<korin::SwapPlace> CVmManagerImpl::FindInSwap(const std::shared_ptr<CVmHandle>& handle,
                                                           std::int64_t index) const {
  const PagingLock lock(m_mutex);
  const CVmHandle* known = Known(handle);
  if (known == nullptr || index < 0 || index >= known->GetBlockCount()) return std::nullopt;
  if (known->GetType(index) != CVmBlock::Type::Swap) return std::nullopt;
  const std::int64_t slot = known->GetSlotIndex(index);
  if (!m_pSwap || !m_pSwap->ReadsBeside() || !m_slots.HasContents(slot)) return std::nullopt;
  return korin::SwapPlace{slot, m_slots.Version(slot)};
}

bool CVmManagerImpl::ReadFromSwap(const korin::SwapPlace& place, std::int64_t offset, void* to,
                                  std::int64_t size) const {
  return m_pSwap && m_pSwap->ReadBeside(place.slot * m_nBlockSize + offset, to, size);
}

bool CVmManagerImpl::IsCurrent(const korin::SwapPlace& place) const {
  const PagingLock lock(m_mutex);
  return place.slot >= 0 && place.slot < m_slots.Used() &&
         m_slots.Version(place.slot) == place.version;
}

void CVmManagerImpl::UnmapBlock(const std::shared_ptr<CVmHandle>& handle,
                                std::int64_t index) noexcept {
  const PagingLock lock(m_mutex);
  const auto id = std::this_thread::get_id();
  for (auto& [thread, pins] : m_pinsByThread) {
    if (thread == id && pins > 0) --pins;
  }
  Record* record = RecordOf(Known(handle), index);
  if (record == nullptr || record->memory.m_nPin == 0) return;
  ChangeHold(*record, [](CVmMemory& memory) { --memory.m_nPin; });
}

bool CVmManagerImpl::LockBlock(const std::shared_ptr<CVmHandle>& handle, bool lock,
                               std::int64_t index) {
  const PagingLock held(m_mutex);
  Record* record = RecordOf(Known(handle), index);
  if (record == nullptr) return false;
  ChangeHold(*record, [lock](CVmMemory& memory) {
    memory.m_nLock = lock ? memory.m_nLock + 1 : std::max<std::int64_t>(memory.m_nLock - 1, 0);
  });
  return true;
}

void CVmManagerImpl::UnlockAll(const std::shared_ptr<CVmHandle>& handle) {
  const PagingLock lock(m_mutex);
  const CVmHandle* known = Known(handle);
  if (known == nullptr) return;
  for (std::int64_t i = 0; i < known->GetBlockCount(); ++i) {
    if (known->GetType(i) != CVmBlock::Type::Memory) continue;
    ChangeHold(m_records.At(known->GetSlotIndex(i)), [](CVmMemory& memory) { memory.m_nLock = 0; });
  }
}

bool CVmManagerImpl::MakeRoom(const std::shared_ptr<CVmHandle>& handle) {
  const PagingLock lock(m_mutex);
  const CVmHandle* known = Known(handle);
  if (known == nullptr) return false;
  std::int64_t unplaced = 0;
  const bool made = EvictFor(BlocksOf(known->GetBlockSize()), unplaced);
  m_spare = {};
  return made;
}

bool CVmManagerImpl::IsOnMemory(const std::shared_ptr<CVmHandle>& handle) const {
  const PagingLock lock(m_mutex);
  const CVmHandle* known = Known(handle);
  if (known == nullptr) return true;
  for (std::int64_t i = 0; i < known->GetBlockCount(); ++i) {
    if (known->GetType(i) == CVmBlock::Type::Swap) return false;
  }
  return true;
}
