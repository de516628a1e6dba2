#include "korinimage/exceptions.h"
#include "platform/checked_math.h"
#include "platform/memory_pages.h"
#include "vm/manager_impl.h"

using korin::CheckedMul;
using korin::vm::PagingLock;
using korin::vm::SwapSlots;

// The blocks of one handle while they are being placed. Unless it is kept, all
// blocks placed so far are given back, last first.
class CVmManagerImpl::Placing {
 public:
  Placing(CVmManagerImpl& manager, std::shared_ptr<CVmHandle> handle)
      : m_manager(manager), m_handle(std::move(handle)) {
    const PagingLock lock(m_manager.m_mutex);
    m_manager.m_handles.emplace(m_handle.get(), m_handle);
  }
  Placing(const Placing&) = delete;
  Placing& operator=(const Placing&) = delete;
  ~Placing() {
    if (!m_handle) return;
    const PagingLock lock(m_manager.m_mutex);
    for (std::int64_t i = m_handle->GetBlockCount(); i-- > 0;) {
      m_manager.ReleaseBlock(*m_handle, i);
    }
    m_manager.m_handles.erase(m_handle.get());
    FreeHandle(m_handle);
  }

  bool Place(std::int64_t index) {
    const PagingLock lock(m_manager.m_mutex);
    return m_manager.PlaceInMemory(*m_handle, index) || m_manager.PlaceInSwap(*m_handle, index);
  }

  std::shared_ptr<CVmHandle> Keep(std::int64_t blocks) {
    const PagingLock lock(m_manager.m_mutex);
    m_manager.m_nAllocated += blocks;
    return std::exchange(m_handle, nullptr);
  }

 private:
  CVmManagerImpl& m_manager;
  std::shared_ptr<CVmHandle> m_handle;
};

void CVmManagerImpl::AllocImageHandle(std::shared_ptr<CVmHandle>& handle, std::int64_t bytesPerLine,
                                      std::int64_t height, std::int64_t planes,
                                      const std::shared_ptr<korin::Progress>& progress) {
  handle.reset();
  const AllocationPolicy policy = GetAllocationPolicy();
  // Also refuses shapes whose products below would not fit.
  const std::int64_t count = GetBlockCountFor(bytesPerLine, height, planes);
  const bool empty = bytesPerLine == 0 || height == 0 || planes == 0;
  if (count == 0 && !empty) return;  // a line longer than a block
  if (empty || policy == AllocationPolicy::Blocks) {
    AllocHandle(handle, count, progress);
  } else if (policy == AllocationPolicy::Planes) {
    AllocHandle(handle, bytesPerLine * height, planes, progress);
  } else {
    AllocHandle(handle, bytesPerLine * height * planes, 1, progress);
  }
}

void CVmManagerImpl::AllocHandle(std::shared_ptr<CVmHandle>& handle, std::int64_t count,
                                 const std::shared_ptr<korin::Progress>& progress) {
  AllocHandle(handle, m_nBlockSize, count, progress);
}

void CVmManagerImpl::AllocHandle(std::shared_ptr<CVmHandle>& handle, std::int64_t blockBytes,
                                 std::int64_t count,
                                 const std::shared_ptr<korin::Progress>& progress) {
  handle.reset();
  korin::vm::LastPagingFailure().text.clear();
  // A sink may drop the caller's last reference.
  const std::shared_ptr<CVmManagerImpl> self = shared_from_this();
  auto made = std::make_shared<CVmHandle>(blockBytes, count, self);
  const auto total = CheckedMul(BlocksOf(blockBytes), count);
  if (!total || (blockBytes == 0 && count > 0)) return;

  Placing placing(*this, std::move(made));
  std::int64_t lastPercent = -1;
  for (std::int64_t i = 0; i < count; ++i) {
    const std::int64_t percent = (i + 1) * 100 / count;
    if (progress && percent != lastPercent) progress->update(static_cast<int>(percent));
    lastPercent = percent;
    if (!placing.Place(i)) return;
  }
  handle = placing.Keep(*total);
}

// A budget beyond what the system grants ends where blocks that may go could make
// the room; a block that no address space has room for is refused at once.
bool CVmManagerImpl::PlaceInMemory(CVmHandle& handle, std::int64_t index) {
  bool refused = false;
  Record* record = CreateRecord(handle, index, &refused);
  if (refused && (handle.GetBlockSize() > korin::platform::kLargestMapping ||
                  BlocksOf(handle.GetBlockSize()) > m_evictable.Size())) {
    const auto& failure = korin::vm::LastPagingFailure();
    throw korin::CVmMemoryAllocationError(failure.text.str(), failure.figures);
  }
  if (record == nullptr) return false;
  // Most new blocks are wholly overwritten first: the zeros wait for one that is not.
  record->awaitsZeros = true;
  CommitRecord(*record);
  return true;
}

bool CVmManagerImpl::PlaceInSwap(CVmHandle& handle, std::int64_t index) {
  const std::int64_t size = BlocksOf(handle.GetBlockSize());
  const bool exhausted = !m_slots.HasFree() && m_slots.Used() >= m_slots.Limit();
  if (exhausted) GiveUpCopy(size);
  std::int64_t slot = m_slots.FindFree(size);
  if (slot != SwapSlots::kNone) {
    if (!ReuseSlot(slot, size)) return false;
  } else {
    if (!ReserveSwapEnd(size)) return false;
    slot = m_slots.Append(size);
  }
  handle.Set(index, CVmBlock::Type::Swap, slot);
  return true;
}

void CVmManagerImpl::ReleaseBlock(CVmHandle& handle, std::int64_t index) noexcept {
  const std::int64_t slot = handle.GetSlotIndex(index);
  if (handle.GetType(index) == CVmBlock::Type::Swap) {
    FreeSlot(slot, BlocksOf(handle.GetBlockSize()));
  } else if (handle.GetType(index) == CVmBlock::Type::Memory) {
    Record& record = m_records.At(slot);
    if (record.memory.m_nSwapSlot != SwapSlots::kNone) {
      FreeSlot(record.memory.m_nSwapSlot, record.memory.m_nSize);
    }
    DropRecord(record);
  }
  handle.Set(index, CVmBlock::Type::None, -1);
}

void CVmManagerImpl::ReleaseHandle(std::shared_ptr<CVmHandle>& handle) {
  const std::shared_ptr<CVmManagerImpl> self = shared_from_this();
  const PagingLock lock(m_mutex);
  if (CVmHandle* known = Known(handle)) {
    m_nAllocated -= BlocksOf(known->GetBlockSize()) * known->GetBlockCount();
    for (std::int64_t i = 0; i < known->GetBlockCount(); ++i) ReleaseBlock(*known, i);
    m_handles.erase(known);
    m_released.notify_all();  // its memory is room for others
  }
  FreeHandle(handle);
}
