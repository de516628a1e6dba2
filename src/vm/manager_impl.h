#pragma once

#include <condition_variable>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "korinimage/vm_manager.h"
#include "vm/eviction_index.h"
#include "vm/memory_budget.h"
#include "vm/paging_lock.h"
#include "vm/record_table.h"
#include "vm/swap_slots.h"

namespace korin::vm {

// What a test puts in place of a manager's own findings. An empty member leaves
// the ordinary one.
struct ManagerSeams {
  std::optional<std::int64_t> budgetBytes;
  std::optional<std::int64_t> diskLimitBlocks;
  // Memory of one block; what is no CVmWin32Memory is taken to be zeroed.
  std::function<std::unique_ptr<CVmMemoryInterface>(std::int64_t bytes)> memory;
  std::function<std::unique_ptr<CVmVirtualMemory>(const std::filesystem::path& folder)> swap;
};

// The manager's inner figures, for tests.
struct ManagerFigures {
  std::int64_t memoryUsed = 0;  // manager blocks
  std::int64_t swapUsed = 0;    // manager blocks, high-water mark
  std::int64_t allocated = 0;   // manager blocks
  std::int64_t handles = 0;
  std::int64_t pins = 0;
  std::vector<std::pair<std::int64_t, std::int64_t>> freeExtents;  // (slot, size), ascending
  std::string fault;  // the first broken invariant found by a full walk; empty: none
};

}  // namespace korin::vm

// The manager. One recursive mutex guards all state below it.
class CVmManagerImpl : public CVmManager, public std::enable_shared_from_this<CVmManagerImpl> {
 public:
  explicit CVmManagerImpl(std::unique_ptr<CVmManagerConfiguration> configuration,
                          korin::vm::ManagerSeams seams = {});
  ~CVmManagerImpl() override;

  bool MakeRoom(const std::shared_ptr<CVmHandle>& handle) override;
  std::int64_t GetBlockSize() const override;
  AllocationPolicy GetAllocationPolicy() const override;
  void SetAllocationPolicy(AllocationPolicy policy) override;
  std::int64_t GetLinesPerBlock(std::int64_t bytesPerLine, std::int64_t height,
                                std::int64_t planes) const override;
  std::int64_t GetBlockCountFor(std::int64_t bytesPerLine, std::int64_t height,
                                std::int64_t planes) const override;
  void AllocImageHandle(std::shared_ptr<CVmHandle>& handle, std::int64_t bytesPerLine,
                        std::int64_t height, std::int64_t planes,
                        const std::shared_ptr<korin::Progress>& progress) override;
  void AllocHandle(std::shared_ptr<CVmHandle>& handle, std::int64_t blockBytes, std::int64_t count,
                   const std::shared_ptr<korin::Progress>& progress) override;
  void AllocHandle(std::shared_ptr<CVmHandle>& handle, std::int64_t count,
                   const std::shared_ptr<korin::Progress>& progress) override;
  void ReleaseHandle(std::shared_ptr<CVmHandle>& handle) override;
  BYTE* GetBlockAddress(const std::shared_ptr<CVmHandle>& handle, std::int64_t index,
                        bool write) override;
  bool LockBlock(const std::shared_ptr<CVmHandle>& handle, bool lock, std::int64_t index) override;
  void UnlockAll(const std::shared_ptr<CVmHandle>& handle) override;
  bool IsOnMemory(const std::shared_ptr<CVmHandle>& handle) const override;
  MemoryInfo GetMemoryInfo() const override;
  VMSTATUS GetStatus() const override;
  VMSTATUS GetDefaultStatus() const override;
  std::int64_t GetDiskUsedBytes() const override;
  PhysicalMemory GetPhysicalMemory() const override;
  std::int64_t GetAllocatedBlocks() const override;
  std::int64_t GetDiskLimitBlocks() const override;
  std::int64_t GetMemoryCapacityBlocks() const override;
  std::int64_t GetTotalCapacityBlocks() const override;
  std::recursive_mutex& GetLock() override;
  BYTE* MapBlock(const std::shared_ptr<CVmHandle>& handle, std::int64_t index, bool literalFlag,
                 korin::BlockIntent intent) override;
  void UnmapBlock(const std::shared_ptr<CVmHandle>& handle, std::int64_t index) noexcept override;
  BYTE* MapResidentBlock(const std::shared_ptr<CVmHandle>& handle, std::int64_t index) override;
  std::optional<korin::SwapPlace> FindInSwap(const std::shared_ptr<CVmHandle>& handle,
                                             std::int64_t index) const override;
  bool ReadFromSwap(const korin::SwapPlace& place, std::int64_t offset, void* to,
                    std::int64_t size) const override;
  bool IsCurrent(const korin::SwapPlace& place) const override;
  std::int64_t GetMemoryUsedBlocks() const override;
  std::int64_t GetComfortableBlocks() const override;

  korin::vm::ManagerFigures Inspect() const;

 private:
  using Record = korin::vm::Record;
  class Placing;

  // How a block is fetched.
  struct Fetch {
    bool modify = false;     // mark it modified
    bool overwrite = false;  // its old bytes need not be brought in
    bool pin = false;
    bool bringIn = true;
  };
  // Who keeps a record in memory.
  enum class Hold { kNone, kPinned, kLocked };
  // Memory for one block.
  struct BlockMemory {
    std::unique_ptr<CVmMemoryInterface> memory;
    std::int64_t bytes = 0;
    BYTE* address = nullptr;
    bool zeroed = false;
  };

  // manager_impl.cpp
  korin::vm::MemoryBudget ComputeBudget() const;
  std::int64_t BlocksOf(std::int64_t bytes) const;

  // manager_placing.cpp
  bool PlaceInMemory(CVmHandle& handle, std::int64_t index);
  bool PlaceInSwap(CVmHandle& handle, std::int64_t index);
  void ReleaseBlock(CVmHandle& handle, std::int64_t index) noexcept;

  // manager_paging.cpp
  CVmHandle* Known(const std::shared_ptr<CVmHandle>& handle) const;
  Record* RecordOf(const CVmHandle* known, std::int64_t index);
  BYTE* FetchBlock(const std::shared_ptr<CVmHandle>& handle, std::int64_t index, Fetch fetch);
  Record* BringIn(CVmHandle& handle, std::int64_t index, bool overwrite);
  static Hold HoldOf(const Record& record);
  template <typename Change>
  void ChangeHold(Record& record, Change change) noexcept;
  bool WorthWaiting(std::int64_t blocks) const;
  std::int64_t RoomWanted(std::int64_t blocks) const;
  Record* EvictUntilTaken(CVmHandle& handle, std::int64_t index, std::int64_t& unplaced);
  std::int64_t& PinsOfThisThread();

  // manager_records.cpp
  BlockMemory TakeMemory(std::int64_t bytes, bool* refused);
  Record* CreateRecord(CVmHandle& handle, std::int64_t index, bool* refused = nullptr);
  static void ZeroRecord(Record& record);
  void CommitRecord(Record& record) noexcept;
  void DropRecord(Record& record) noexcept;
  bool EvictFor(std::int64_t blocks, std::int64_t& unplaced);
  bool SwapOut(Record& record, std::int64_t& unplaced);
  bool GiveUpCopy(std::int64_t size) noexcept;
  bool ReuseSlot(std::int64_t slot, std::int64_t size);
  void FreeSlot(std::int64_t slot, std::int64_t size) noexcept;
  bool ReserveSwapEnd(std::int64_t size);
  bool Transfer(bool write, std::int64_t slot, Record& record);

  // Declared first: outlives everything that a record's release may use.
  mutable std::recursive_mutex m_mutex;
  std::condition_variable_any m_released;  // a pin went
  int m_waiting = 0;

  std::unique_ptr<CVmManagerConfiguration> m_pConfiguration;
  korin::vm::ManagerSeams m_seams;
  std::int64_t m_nBlockSize = 0;
  AllocationPolicy m_policy = AllocationPolicy::Blocks;
  korin::vm::MemoryBudget m_budget;
  std::int64_t m_nCapacity = 0;      // manager blocks
  std::int64_t m_nMemoryUsed = 0;    // manager blocks
  std::int64_t m_nAllocated = 0;     // manager blocks of complete handles
  std::int64_t m_nAccess = 0;        // the next last-use stamp
  std::int64_t m_nPinnedBlocks = 0;  // manager blocks that only pins keep
  korin::vm::RecordTable m_records;
  korin::vm::EvictionIndex m_evictable;
  korin::vm::CopyIndex m_copies;
  std::vector<std::int64_t> m_victims;  // scratch of EvictFor
  BlockMemory m_spare;                  // of the last victim, for the block that needs the room
  std::unordered_map<const CVmHandle*, std::shared_ptr<CVmHandle>> m_handles;
  std::vector<std::pair<std::thread::id, std::int64_t>> m_pinsByThread;

  korin::vm::SwapSlots m_slots;
  std::unique_ptr<CVmVirtualMemory> m_pSwap;
  std::filesystem::path m_swapFolder;
  std::filesystem::path m_vmDrive;  // validated
};

namespace korin {

// A manager with exact budgets, for tests: block sizes of any number of bytes and
// capacities of a few blocks.
std::shared_ptr<CVmManagerImpl> CreateManagerForTest(std::int32_t blockSize,
                                                     std::int64_t capacityBlocks,
                                                     std::int64_t diskLimitBlocks,
                                                     vm::ManagerSeams seams = {});

}  // namespace korin
