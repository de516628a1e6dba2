#include "korinimage/vm_handle.h"

#include <stdexcept>
#include <utility>

#include "korinimage/vm_manager.h"

namespace {

constexpr std::int64_t kMostBlocks = 268435455;

// Checked before the block table is allocated: a hostile count must not cost
// gigabytes first.
std::size_t CheckedCount(std::int64_t blockSize, std::int64_t blockCount) {
  if (blockSize < 0 || blockCount < 0 || blockCount > kMostBlocks) {
    throw std::length_error("a handle cannot hold " + std::to_string(blockCount) + " blocks of " +
                            std::to_string(blockSize) + " bytes");
  }
  return static_cast<std::size_t>(blockCount);
}

}  // namespace

CVmHandle::CVmHandle(std::int64_t blockSize, std::int64_t blockCount,
                     std::shared_ptr<CVmManager> manager)
    : m_pManager(std::move(manager)),
      m_nBlockSize(blockSize),
      m_nBlockCount(blockCount),
      m_blocks(CheckedCount(blockSize, blockCount)) {}

CVmHandle::~CVmHandle() = default;

void CVmHandle::Set(std::int64_t index, CVmBlock::Type type, std::int64_t slot) {
  CVmBlock& block = m_blocks[static_cast<std::size_t>(index)];
  block.m_type = type;
  block.m_nSlot = slot;
}

CVmBlock::Type CVmHandle::GetType(std::int64_t index) const {
  return m_blocks[static_cast<std::size_t>(index)].m_type;
}

std::int64_t CVmHandle::GetSlotIndex(std::int64_t index) const {
  return m_blocks[static_cast<std::size_t>(index)].m_nSlot;
}
