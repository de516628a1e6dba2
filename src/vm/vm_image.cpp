#include "korinimage/vm_image.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>

#include "korinimage/exceptions.h"
#include "korinimage/scoped_progress.h"
#include "platform/checked_math.h"
#include "vm/paging_lock.h"

using korin::BlockGuard;
using korin::BlockIntent;
using korin::CheckedMul;
using korin::CVmManagerHandleDeletedError;
using korin::CVmMemoryAllocationError;
using korin::vm::LastPagingFailure;
using korin::vm::PagingLock;

namespace {

// The exception for a paging call that failed, with the manager's reason and figures
// when it gave them.
CVmMemoryAllocationError PagingError(const std::string& what) {
  const auto& failure = LastPagingFailure();
  if (failure.text.empty()) return CVmMemoryAllocationError(what);
  std::string text = what + ": " + failure.text.str();
  const korin::AllocationFigures& figures = failure.figures;
  if (figures.allowed >= 0) {
    text += "; " + std::to_string(figures.requested) + " bytes requested, " +
            std::to_string(figures.used) + " of " + std::to_string(figures.allowed) +
            " bytes in use";
  }
  return CVmMemoryAllocationError(text, figures);
}

std::string ShapeText(std::int64_t width, std::int64_t height, std::int64_t planes) {
  return "an image of " + std::to_string(width) + " x " + std::to_string(height) + " pixels and " +
         std::to_string(planes) + " planes";
}

std::int64_t CheckedSize(std::optional<std::int64_t> size, const std::string& shape) {
  if (!size) throw CVmMemoryAllocationError(shape + " has no valid size");
  return *size;
}

// True when blocks of the handle hold what a layout says.
bool Fits(const CVmHandle& handle, std::int64_t count, std::int64_t bytesPerBlock) {
  return handle.GetBlockCount() == count && (count == 0 || handle.GetBlockSize() >= bytesPerBlock);
}

}  // namespace

CVmImage::CVmImage() = default;

CVmImage::CVmImage(const std::shared_ptr<CVmManager>& manager, std::int64_t bitsPerPixel,
                   std::int64_t width, std::int64_t height, std::int64_t planes,
                   const std::shared_ptr<korin::Progress>& progress) {
  const std::string shape = ShapeText(width, height, planes);
  LastPagingFailure().text.clear();
  m_nWidth = width;
  m_nHeight = height;
  m_nPlanes = planes;
  m_nBytesPixel = bitsPerPixel / 8;
  if (m_nBytesPixel < 0) m_nBytesPixel = -m_nBytesPixel;
  m_nBytesPerLine = CheckedSize(CheckedMul(m_nBytesPixel, width), shape);
  m_nTotalLines = CheckedSize(CheckedMul(height, planes), shape);
  CheckedSize(CheckedMul(m_nBytesPerLine, m_nTotalLines), shape);
  if (manager) {
    // The policy may change between the calls that size and place the image.
    constexpr int kTries = 8;
    bool consistent = false;
    for (int i = 0; i < kTries && !consistent; ++i) {
      m_nLinesPerBlock = manager->GetLinesPerBlock(m_nBytesPerLine, height, planes);
      m_nBlockCount = manager->GetBlockCountFor(m_nBytesPerLine, height, planes);
      try {
        manager->AllocImageHandle(m_VmHandle, m_nBytesPerLine, height, planes, progress);
      } catch (const std::length_error& error) {
        throw CVmMemoryAllocationError(shape + ": " + error.what());
      }
      consistent = !m_VmHandle || Fits(*m_VmHandle, m_nBlockCount,
                                       std::min(m_nLinesPerBlock, m_nTotalLines) * m_nBytesPerLine);
      if (!consistent) manager->ReleaseHandle(m_VmHandle);
    }
    if (m_nLinesPerBlock <= 0) {
      PagingLock::Say("m_nLinesPerBlock(" + std::to_string(m_nLinesPerBlock) + ") <= 0");
      Release();
      throw CVmMemoryAllocationError(shape + ": a line of " + std::to_string(m_nBytesPerLine) +
                                     " bytes is longer than a block (setting BlockSize)");
    }
  }
  if (!m_VmHandle) {
    PagingLock::Say("m_VmHandle is nullptr");
    throw PagingError(shape + " cannot be placed");
  }
}

CVmImage::CVmImage(CVmImage& source, const std::shared_ptr<korin::Progress>& progress) {
  CopyImage(source, progress);
}

CVmImage::~CVmImage() { Release(); }

// Gives the pixels back and leaves an empty store.
void CVmImage::Release() noexcept {
  if (const auto manager = VmManager()) manager->ReleaseHandle(m_VmHandle);
  m_VmHandle.reset();
  m_nWidth = m_nHeight = m_nPlanes = m_nBytesPixel = m_nBytesPerLine = 0;
  m_nLinesPerBlock = m_nTotalLines = m_nBlockCount = 0;
}

void CVmImage::TakeLayout(const CVmImage& source) noexcept {
  m_nWidth = source.m_nWidth;
  m_nHeight = source.m_nHeight;
  m_nPlanes = source.m_nPlanes;
  m_nBytesPixel = source.m_nBytesPixel;
  m_nBytesPerLine = source.m_nBytesPerLine;
  m_nLinesPerBlock = source.m_nLinesPerBlock;
  m_nTotalLines = source.m_nTotalLines;
  m_nBlockCount = source.m_nBlockCount;
}

// How many block pairs a copy holds at once.
std::int64_t CVmImage::PairsAtOnce(const CVmImage& source) const {
  // Where blocks are paged, the pair before is the first that may make room.
  if (!source.IsOnMemory() || !IsOnMemory()) return 1;
  const auto manager = RequireManager();
  const std::int64_t unit = std::max<std::int64_t>(manager->GetBlockSize(), 1);
  const std::int64_t perBlock =
      std::max<std::int64_t>(korin::CeilDiv(m_VmHandle->GetBlockSize(), unit), 1);
  return std::max<std::int64_t>(manager->GetComfortableBlocks() / (2 * perBlock), 1);
}

// Copies blocks from `first` on and returns how many could be had, `most` at most.
std::int64_t CVmImage::CopyBlocks(CVmImage& source, std::int64_t first, std::int64_t most,
                                  const MoveBytes& move) {
  std::vector<BlockGuard> guards;
  std::vector<BytesToMove> moves;
  const std::int64_t end = std::min(first + most, m_nBlockCount);
  for (std::int64_t i = first; i < end; ++i) {
    // Who watches the manager's calls sees the flags this way round; what is
    // written is told by the intents.
    BlockGuard block = source.PinBlock(i, BlockIntent::Read, true);
    BlockGuard copy = block ? PinBlock(i, BlockIntent::Overwrite, false) : BlockGuard();
    if (!copy) break;
    moves.push_back({copy.Address(), block.Address(), GetBlockLineCount(i) * m_nBytesPerLine});
    guards.push_back(std::move(block));
    guards.push_back(std::move(copy));
  }
  if (!moves.empty()) move(moves);
  return static_cast<std::int64_t>(moves.size());
}

void CVmImage::CopyImage(CVmImage& source, const std::shared_ptr<korin::Progress>& progress) {
  CopyImage(source, progress, [](const std::vector<BytesToMove>& moves) {
    for (const auto& [to, from, size] : moves) {
      std::memcpy(to, from, static_cast<std::size_t>(size));
    }
  });
}

void CVmImage::CopyImage(CVmImage& source, const std::shared_ptr<korin::Progress>& progress,
                         const MoveBytes& move) {
  if (&source == this) return;
  const std::shared_ptr<CVmManager> manager = source.RequireManager();
  const CVmHandle& from = *source.m_VmHandle;
  std::shared_ptr<CVmHandle> handle;
  LastPagingFailure().text.clear();
  // The source keeps the layout of the policy under which it was made.
  const std::int64_t height = source.m_nHeight, planes = source.m_nPlanes;
  const auto allocate = [&](bool byPolicy) {
    if (byPolicy) {
      manager->AllocImageHandle(handle, source.m_nBytesPerLine, height, planes, progress);
    } else {
      manager->AllocHandle(handle, from.GetBlockSize(), from.GetBlockCount(), progress);
    }
  };
  const bool sameLayout =
      manager->GetLinesPerBlock(source.m_nBytesPerLine, height, planes) ==
          source.m_nLinesPerBlock &&
      manager->GetBlockCountFor(source.m_nBytesPerLine, height, planes) == source.m_nBlockCount;
  allocate(sameLayout);
  if (handle && !Fits(*handle, source.m_nBlockCount, from.GetBlockSize())) {
    manager->ReleaseHandle(handle);  // the policy changed in between
    allocate(false);
  }
  if (!handle) {
    throw PagingError(ShapeText(source.m_nWidth, height, planes) + " cannot be placed");
  }
  Release();
  TakeLayout(source);
  m_VmHandle = std::move(handle);

  try {
    korin::ScopedProgress scope(progress, m_nBlockCount);
    const std::int64_t most = PairsAtOnce(source);
    for (std::int64_t i = 0; i < m_nBlockCount;) {
      std::int64_t copied = CopyBlocks(source, i, most, move);
      if (copied == 0) {
        const auto error = PagingError("block " + std::to_string(i) + " cannot be copied");
        Release();  // before the sink hears of the end
        throw error;
      }
      for (; copied > 0; --copied) scope.Step(++i);  // one ahead
    }
  } catch (...) {
    Release();
    throw;
  }
}

std::shared_ptr<CVmManager> CVmImage::VmManager() const {
  return m_VmHandle ? m_VmHandle->VmManager() : nullptr;
}

std::shared_ptr<CVmManager> CVmImage::RequireManager() const {
  auto manager = VmManager();
  if (!manager) throw CVmManagerHandleDeletedError();
  return manager;
}

CVmManager::AllocationPolicy CVmImage::GetAllocationPolicy() const {
  return RequireManager()->GetAllocationPolicy();
}

std::int64_t CVmImage::GetBlockLineCount(std::int64_t block) const {
  // In 64 bits for every block that a handle can have; wrapping beyond.
  const auto wrapped = [](std::uint64_t value) { return static_cast<std::int64_t>(value); };
  const std::uint64_t first =
      static_cast<std::uint64_t>(block) * static_cast<std::uint64_t>(m_nLinesPerBlock);
  const std::uint64_t end = first + static_cast<std::uint64_t>(m_nLinesPerBlock);
  return wrapped(static_cast<std::uint64_t>(std::min(wrapped(end), m_nTotalLines)) - first);
}

std::tuple<std::int64_t, std::int64_t> CVmImage::GetBlockShape() const {
  return {m_nWidth, std::min(m_nLinesPerBlock, m_nTotalLines)};
}

BYTE* CVmImage::GetBlockOnMemory(std::int64_t block, bool write) {
  const auto manager = RequireManager();
  if (block < 0 || block >= m_nBlockCount) return nullptr;
  return manager->GetBlockAddress(m_VmHandle, block, write);
}

// Where a pixel lies in the image; none when that is outside. A column past the
// width is one of the lines that follow.
std::optional<std::int64_t> CVmImage::ByteOffset(std::int64_t x, std::int64_t y,
                                                 std::int64_t plane) const {
  const std::int64_t size = m_nTotalLines * m_nBytesPerLine;
  if (size == 0 || plane < 0 || plane >= m_nPlanes) return std::nullopt;
  if (y < 0 || y >= m_nTotalLines - plane * m_nHeight) return std::nullopt;
  const std::int64_t line = (plane * m_nHeight + y) * m_nBytesPerLine;
  if (x > (size - line - 1) / m_nBytesPixel || x < -(line / m_nBytesPixel)) return std::nullopt;
  return line + x * m_nBytesPixel;
}

BYTE* CVmImage::GetImageAdr(std::int64_t x, std::int64_t y, std::int64_t plane, bool write,
                            bool lock, AddressHandle* addressHandle) {
  const auto manager = RequireManager();  // outlives the lock on its mutex
  std::optional<PagingLock> held;
  if (m_parallel) held.emplace(manager->GetLock());
  const auto offset = ByteOffset(x, y, plane);
  if (!offset) {
    throw CVmMemoryAllocationError("pixel (" + std::to_string(x) + ", " + std::to_string(y) +
                                   ") of plane " + std::to_string(plane) + " lies outside of " +
                                   ShapeText(m_nWidth, m_nHeight, m_nPlanes));
  }
  const std::int64_t block = *offset / m_nBytesPerLine / m_nLinesPerBlock;
  LastPagingFailure().text.clear();
  BYTE* address = manager->GetBlockAddress(m_VmHandle, block, write);
  if (address == nullptr) {
    throw PagingError("block " + std::to_string(block) + " cannot be brought into memory");
  }
  if (lock) {
    if (!manager->LockBlock(m_VmHandle, true, block)) {
      throw CVmMemoryAllocationError("block " + std::to_string(block) + " cannot be locked");
    }
    if (addressHandle != nullptr) addressHandle->m_nBlock = block;
  }
  return address + (*offset - block * m_nLinesPerBlock * m_nBytesPerLine);
}

bool CVmImage::Unlock(const AddressHandle& addressHandle) {
  const auto manager = VmManager();
  if (!manager || addressHandle.m_nBlock < 0) return false;
  std::optional<PagingLock> held;
  if (m_parallel) held.emplace(manager->GetLock());
  return manager->LockBlock(m_VmHandle, false, addressHandle.m_nBlock);
}

void CVmImage::UnlockAll() {
  const auto manager = VmManager();
  if (!manager) return;
  std::optional<PagingLock> held;
  if (m_parallel) held.emplace(manager->GetLock());
  manager->UnlockAll(m_VmHandle);
}

bool CVmImage::IsOnMemory() const {
  const auto manager = VmManager();
  return !manager || manager->IsOnMemory(m_VmHandle);
}

BlockGuard CVmImage::PinBlock(std::int64_t block, BlockIntent intent) {
  return PinBlock(block, intent, intent != BlockIntent::Read);
}

BlockGuard CVmImage::PinBlock(std::int64_t block, BlockIntent intent, bool literalFlag) {
  auto manager = RequireManager();
  if (block < 0 || block >= m_nBlockCount) return {};
  BYTE* address = manager->MapBlock(m_VmHandle, block, literalFlag, intent);
  if (address == nullptr) return {};
  return BlockGuard(std::move(manager), m_VmHandle, block, address);
}

BlockGuard CVmImage::RequireBlock(std::int64_t block, BlockIntent intent, bool literalFlag) {
  LastPagingFailure().text.clear();
  BlockGuard guard = PinBlock(block, intent, literalFlag);
  if (!guard) {
    throw PagingError("block " + std::to_string(block) + " cannot be brought into memory");
  }
  return guard;
}

CVmImage::LineRun CVmImage::GetLineRun(std::int64_t plane, std::int64_t y) const {
  const std::int64_t line = plane * m_nHeight + y;
  LineRun run;
  run.block = line / m_nLinesPerBlock;
  run.firstLine = line % m_nLinesPerBlock;
  run.plane = plane;
  run.y = y;
  run.lines = std::min(m_nLinesPerBlock - run.firstLine, m_nHeight - y);
  return run;
}

bool CVmImage::HasWholePlanes() const {
  if (m_nHeight <= 0 || m_nLinesPerBlock <= 0) return false;
  return m_nBlockCount == 1 || m_nLinesPerBlock % m_nHeight == 0;
}
