#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <tuple>
#include <vector>

#include "korinimage/block_guard.h"
#include "korinimage/export.h"
#include "korinimage/progress.h"
#include "korinimage/types.h"
#include "korinimage/vm_manager.h"

// The pixel storage of one image: width x height pixels in each of `planes`
// planes, planes one after another, each `height` lines, cut into blocks of whole
// lines. Line n (counted over all planes) lies in block n / GetLinesPerBlock() at
// line n % GetLinesPerBlock() of it.
//
// Thread rule: several threads may fetch, lock and unlock blocks of one store at
// once while it is in parallel mode (the default). Copying and destroying a store
// must not run beside other uses of it.
class KORINIMAGE_API CVmImage {
 public:
  // Which block a pixel address was locked in; -1: nothing locked.
  class AddressHandle {
   public:
    std::int64_t m_nBlock = -1;
  };

  // Lines of one plane that lie side by side in one block.
  struct LineRun {
    std::int64_t block = 0;
    std::int64_t firstLine = 0;  // within the block
    std::int64_t plane = 0;
    std::int64_t y = 0;  // first row within the plane
    std::int64_t lines = 0;
  };

  // A part of a copy; what moves such parts. They do not overlap.
  struct BytesToMove {
    BYTE* to = nullptr;
    const BYTE* from = nullptr;
    std::int64_t size = 0;
  };
  using MoveBytes = std::function<void(const std::vector<BytesToMove>&)>;

  // An empty store: no manager, no pixels.
  CVmImage();
  // A store of new pixels, all zero. `bitsPerPixel` may be negative (floating
  // point); bytes per pixel = |bitsPerPixel| / 8. Throws
  // korin::CVmMemoryAllocationError when the shape is invalid or there is no room;
  // a line for standard error says which.
  CVmImage(const std::shared_ptr<CVmManager>& manager, std::int64_t bitsPerPixel,
           std::int64_t width, std::int64_t height, std::int64_t planes,
           const std::shared_ptr<korin::Progress>& progress);
  // A copy of the source's shape and pixels, on the same manager.
  CVmImage(CVmImage& source, const std::shared_ptr<korin::Progress>& progress);
  CVmImage(const CVmImage&) = delete;
  CVmImage& operator=(const CVmImage&) = delete;
  virtual ~CVmImage();

  // Takes over shape and pixels of the source. The sink gets the percentages of the
  // allocation, then initialize, the percentages of the copy (they run one block
  // ahead and may pass 100) and finalize. The source itself: nothing happens. Throws
  // korin::CVmManagerHandleDeletedError (source without a living manager),
  // korin::CVmMemoryAllocationError: no room for the new blocks leaves this store
  // as it was; a block that cannot be brought in, or a sink that throws while blocks
  // are copied, leaves it empty.
  void CopyImage(CVmImage& source, const std::shared_ptr<korin::Progress>& progress);
  // The same; `move` moves the bytes of one block pair after another, or of several at
  // once where both stores are in memory and the budget comfortably holds them.
  void CopyImage(CVmImage& source, const std::shared_ptr<korin::Progress>& progress,
                 const MoveBytes& move);

  std::int64_t GetWidth() const { return m_nWidth; }    // pixels
  std::int64_t GetHeight() const { return m_nHeight; }  // lines per plane
  std::int64_t GetPlanes() const { return m_nPlanes; }
  std::int64_t GetBytesPixel() const { return m_nBytesPixel; }
  std::int64_t GetBytesPerLine() const { return m_nBytesPerLine; }
  std::int64_t GetLinesPerBlock() const { return m_nLinesPerBlock; }
  std::int64_t GetBlockCount() const { return m_nBlockCount; }
  std::shared_ptr<CVmHandle>& GetVmHandle() { return m_VmHandle; }
  std::shared_ptr<CVmManager> VmManager() const;  // empty: no handle or manager gone
  bool GetParallel() const { return m_parallel; }
  void SetParallel(bool parallel) { m_parallel = parallel; }
  // The manager's current policy. Throws korin::CVmManagerHandleDeletedError.
  CVmManager::AllocationPolicy GetAllocationPolicy() const;

  // Lines of one block; not range-checked: a block past the end gives <= 0.
  std::int64_t GetBlockLineCount(std::int64_t block) const;
  // (width, lines of block 0).
  std::tuple<std::int64_t, std::int64_t> GetBlockShape() const;

  // First byte of a block brought into memory, null when there is no room or the
  // index is out of range. `write`: the caller will change it. The address holds
  // until the block is evicted; prefer PinBlock.
  // Throws korin::CVmManagerHandleDeletedError.
  BYTE* GetBlockOnMemory(std::int64_t block, bool write);
  // First byte of pixel (x, y) of a plane. With `lock` the block is locked, and
  // noted in `addressHandle` when one is given; the caller unlocks it. Throws
  // korin::CVmManagerHandleDeletedError; korin::CVmMemoryAllocationError when the
  // pixel is outside the image or its block cannot be brought in or locked.
  BYTE* GetImageAdr(std::int64_t x, std::int64_t y, std::int64_t plane, bool write, bool lock,
                    AddressHandle* addressHandle);
  bool Unlock(const AddressHandle& addressHandle);
  void UnlockAll();
  bool IsOnMemory() const;

  // Takes a block and keeps it in memory while the guard lives; an empty guard
  // when there is no room or the index is out of range. Marks it modified when the
  // intent writes. Throws korin::CVmManagerHandleDeletedError.
  korin::BlockGuard PinBlock(std::int64_t block, korin::BlockIntent intent);
  // The same, with the flag that the manager's GetBlockAddress is given.
  korin::BlockGuard PinBlock(std::int64_t block, korin::BlockIntent intent, bool literalFlag);

  // The same, but in place of an empty guard throws korin::CVmMemoryAllocationError
  // with the manager's reason.
  korin::BlockGuard RequireBlock(std::int64_t block, korin::BlockIntent intent, bool literalFlag);

  // The longest run of lines from row `y` of `plane` on that lies in one block.
  // 0 <= plane < planes, 0 <= y < height; block count > 0.
  LineRun GetLineRun(std::int64_t plane, std::int64_t y) const;
  // True when every plane lies in one block.
  bool HasWholePlanes() const;

 private:
  void TakeLayout(const CVmImage& source) noexcept;
  std::int64_t PairsAtOnce(const CVmImage& source) const;
  std::int64_t CopyBlocks(CVmImage& source, std::int64_t first, std::int64_t most,
                          const MoveBytes& move);
  std::shared_ptr<CVmManager> RequireManager() const;
  std::optional<std::int64_t> ByteOffset(std::int64_t x, std::int64_t y, std::int64_t plane) const;
  void Release() noexcept;

  std::int64_t m_nWidth = 0;
  std::int64_t m_nHeight = 0;
  std::int64_t m_nPlanes = 0;
  std::int64_t m_nBytesPixel = 0;
  std::int64_t m_nBytesPerLine = 0;
  std::int64_t m_nLinesPerBlock = 0;
  std::int64_t m_nTotalLines = 0;
  std::int64_t m_nBlockCount = 0;
  std::shared_ptr<CVmHandle> m_VmHandle;
  bool m_parallel = true;
};
