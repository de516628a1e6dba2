#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>

#include "korinimage/export.h"
#include "korinimage/progress.h"
#include "korinimage/types.h"
#include "korinimage/vm_handle.h"
#include "korinimage/vm_manager_configuration.h"

namespace korin {

// What a taker of a block is going to do with its bytes.
enum class BlockIntent {
  Read,       // nothing changes
  Write,      // some bytes change
  Overwrite,  // every byte of the block changes: its old contents need not be read
};

// Where the swap file holds a block, as of one moment.
struct SwapPlace {
  std::int64_t slot = -1;
  std::int64_t version = 0;
};

}  // namespace korin

// The virtual memory of images: keeps pixels in blocks, in memory while a budget
// lasts and in one swap file after that. Blocks least recently used are written
// out when others are needed.
//
// Always held by shared pointer; handles refer to it weakly. Every member may be
// called from any thread; paging is serialised by one recursive mutex, which is
// never held while a progress sink runs or a line goes to standard error.
//
// Sizes are bytes unless a name says blocks. A "manager block" is GetBlockSize()
// bytes; a handle's block counts as its bytes divided by that, rounded up.
class KORINIMAGE_API CVmManager {
 public:
  // How an image of L bytes per line, H lines and P planes is cut into blocks.
  enum class AllocationPolicy : std::int32_t {
    Blocks = 0,  // manager blocks of whole lines
    Planes = 1,  // one block per plane
    Image = 2,   // one block for the image
  };

  // Figures of memory, in bytes.
  struct MemoryInfo {
    std::int64_t reserve = 0;  // left to the system
    std::int64_t budget = 0;   // for blocks in memory
  };
  struct PhysicalMemory {
    std::int64_t total = 0;
    std::int64_t available = 0;
    std::int64_t reserve = 0;
    std::int64_t budget = 0;
  };

  // A manager on `configuration`, or on the current settings when it is empty.
  // Removes leftover swap files, then sets up its own. Throws std::runtime_error
  // ("Disk full: " and the drive) when no swap folder can be made on a bare drive,
  // std::filesystem::filesystem_error when there is no temporary folder or its
  // free space cannot be asked.
  static std::shared_ptr<CVmManager> Create(
      std::unique_ptr<CVmManagerConfiguration>&& configuration);

  // Removes swap files and folders that ended processes left in the temporary
  // folder and in the configured VMDrive (null: the temporary folder only).
  // Whatever a living process holds is spared. Never throws.
  static void DeleteAllSwapFiles(const std::unique_ptr<CVmManagerConfiguration>& configuration);

  // Writes the VM drive, memory ratio and maximum disk size of `status` to the
  // settings, for the next manager. Null: nothing.
  static void WriteVmStatus(const VMSTATUS* status);

  CVmManager() = default;
  CVmManager(const CVmManager&) = delete;
  CVmManager& operator=(const CVmManager&) = delete;
  // Closes the swap file. Handles that are still alive report Deleted().
  virtual ~CVmManager();

  // Evicts least recently used blocks that nobody holds until one block of the
  // handle fits into what they free. False, with nothing evicted, when they would
  // not suffice; false as well when a block cannot be written out (it stays).
  virtual bool MakeRoom(const std::shared_ptr<CVmHandle>& handle) = 0;

  virtual std::int64_t GetBlockSize() const = 0;
  virtual AllocationPolicy GetAllocationPolicy() const = 0;
  // Affects images sized afterwards, and the path that statistics, fill and
  // conversions take from now on.
  virtual void SetAllocationPolicy(AllocationPolicy policy) = 0;

  // Layout under the current policy. Both throw korin::CVmMemoryAllocationError
  // for an unknown policy, a negative size or a product beyond 64 bits. An image
  // without bytes (a line of 0 bytes, no lines or no planes) has max(height, 1) lines
  // per block and 0 blocks; a line longer than a fixed block has 0 lines per block.
  virtual std::int64_t GetLinesPerBlock(std::int64_t bytesPerLine, std::int64_t height,
                                        std::int64_t planes) const = 0;
  virtual std::int64_t GetBlockCountFor(std::int64_t bytesPerLine, std::int64_t height,
                                        std::int64_t planes) const = 0;

  // Allocate and place all blocks of an image / `count` blocks of `blockBytes` /
  // of the manager's own size. New blocks read as zeros. Allocation evicts
  // nothing: what the budget does not hold gets a place in the swap file. The
  // sink gets a percentage per block (update only). `handle` is empty on failure
  // (no room, disk limit); korin::CVmMemoryAllocationError when memory is refused,
  // std::length_error for a count that no handle takes. An image without bytes has
  // a handle of 0 blocks. Failure gives everything back except that the swap file
  // keeps its length.
  virtual void AllocImageHandle(std::shared_ptr<CVmHandle>& handle, std::int64_t bytesPerLine,
                                std::int64_t height, std::int64_t planes,
                                const std::shared_ptr<korin::Progress>& progress) = 0;
  virtual void AllocHandle(std::shared_ptr<CVmHandle>& handle, std::int64_t blockBytes,
                           std::int64_t count,
                           const std::shared_ptr<korin::Progress>& progress) = 0;
  virtual void AllocHandle(std::shared_ptr<CVmHandle>& handle, std::int64_t count,
                           const std::shared_ptr<korin::Progress>& progress) = 0;

  // Gives all blocks back, marks the handle deleted and resets the pointer. A
  // handle of another manager, a copy or one released before is only marked.
  virtual void ReleaseHandle(std::shared_ptr<CVmHandle>& handle) = 0;

  // Brings a block into memory and returns its address, or null when there is no
  // room or it cannot be read. `write`: the caller will change the block. The
  // address holds until the block is evicted: lock it, or use a BlockGuard.
  virtual BYTE* GetBlockAddress(const std::shared_ptr<CVmHandle>& handle, std::int64_t index,
                                bool write) = 0;
  // Adds or takes one lock of a block in memory; a locked block is not evicted.
  // False when the block is not in memory. The count never falls below 0.
  virtual bool LockBlock(const std::shared_ptr<CVmHandle>& handle, bool lock,
                         std::int64_t index) = 0;
  virtual void UnlockAll(const std::shared_ptr<CVmHandle>& handle) = 0;
  // True when no block lies in the swap file only (also for an empty handle).
  virtual bool IsOnMemory(const std::shared_ptr<CVmHandle>& handle) const = 0;

  virtual MemoryInfo GetMemoryInfo() const = 0;  // recomputed now
  virtual VMSTATUS GetStatus() const = 0;
  virtual VMSTATUS GetDefaultStatus() const = 0;
  virtual std::int64_t GetDiskUsedBytes() const = 0;  // high-water mark of the swap file
  virtual PhysicalMemory GetPhysicalMemory() const = 0;
  virtual std::int64_t GetAllocatedBlocks() const = 0;  // manager blocks of live handles
  virtual std::int64_t GetDiskLimitBlocks() const = 0;
  virtual std::int64_t GetMemoryCapacityBlocks() const = 0;
  virtual std::int64_t GetTotalCapacityBlocks() const = 0;  // memory and disk
  // The mutex of paging, for callers that make several calls one step.
  virtual std::recursive_mutex& GetLock() = 0;

  // Takes a block for a BlockGuard: brings it in as GetBlockAddress(handle, index,
  // literalFlag) does, keeps it from being evicted until UnmapBlock, and marks it
  // modified when the intent writes. Null as for GetBlockAddress. With
  // BlockIntent::Overwrite the address may show bytes of any former block: the
  // taker writes them all. Where only guards of other threads stand in the way, the
  // call waits for them, unless this thread holds a guard itself. The default makes
  // just that call and holds nothing.
  virtual BYTE* MapBlock(const std::shared_ptr<CVmHandle>& handle, std::int64_t index,
                         bool literalFlag, korin::BlockIntent intent);
  // Ends a MapBlock that returned an address, on the thread that made it.
  virtual void UnmapBlock(const std::shared_ptr<CVmHandle>& handle, std::int64_t index) noexcept;
  // The same with BlockIntent::Read for a block that is in memory already; null, at
  // once, for any other. The default: always null.
  virtual BYTE* MapResidentBlock(const std::shared_ptr<CVmHandle>& handle, std::int64_t index);
  // For loops that only read, over more than the budget holds: the bytes of a block that
  // lies in the swap file, without bringing it in. FindInSwap: its place; none when the
  // block is in memory, was never written, or cannot be read so (the default).
  // ReadFromSwap: `size` bytes from byte `offset` of the block on; takes no lock, so that
  // any thread may call it beside anything else. What was read counts only if IsCurrent
  // holds afterwards: the place may have been given to another block meanwhile.
  virtual std::optional<korin::SwapPlace> FindInSwap(const std::shared_ptr<CVmHandle>& handle,
                                                     std::int64_t index) const;
  virtual bool ReadFromSwap(const korin::SwapPlace& place, std::int64_t offset, void* to,
                            std::int64_t size) const;
  virtual bool IsCurrent(const korin::SwapPlace& place) const;
  // Manager blocks now in memory.
  virtual std::int64_t GetMemoryUsedBlocks() const;
  // How many manager blocks one operation may hold at once without starving others.
  virtual std::int64_t GetComfortableBlocks() const;

 protected:
  // Marks the handle deleted and resets the caller's pointer.
  static void FreeHandle(std::shared_ptr<CVmHandle>& handle);
  // Available bytes of the folder's volume / blockSize. Throws
  // std::filesystem::filesystem_error.
  static std::int64_t GetDiskFreeBlocks(const std::filesystem::path& folder,
                                        std::int64_t blockSize);
};
