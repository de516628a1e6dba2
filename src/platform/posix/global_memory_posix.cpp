#include "korinimage/global_memory.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>

#include "platform/fault.h"
#include "platform/handle_table.h"
#include "platform/lasting.h"

namespace korin {

namespace {

// No bitmap comes near it; larger sizes are mistakes, not wishes.
constexpr std::int64_t kMaxSize = std::int64_t{1} << 39;

struct Free {
  void operator()(void* bytes) const { std::free(bytes); }
};

struct Block {
  std::unique_ptr<void, Free> bytes;  // empty for a block of 0 bytes
  std::int64_t size;
  std::int64_t locks;
};

struct Blocks {
  std::mutex mutex;
  platform::HandleTable<Block> table;

  void AtUnload() noexcept {
    const std::unique_lock lock(mutex, std::try_to_lock);
    if (lock) table.Shrink();
  }
};

// Handles may be freed by destructors that run at exit.
Blocks& AllBlocks() { return platform::Lasting<Blocks>(); }

std::uintptr_t Number(HDIB memory) { return reinterpret_cast<std::uintptr_t>(memory); }

}  // namespace

HDIB AllocGlobalMemory(std::int64_t size) noexcept try {
  if (size < 0 || size > std::min<std::int64_t>(kMaxSize, PTRDIFF_MAX)) return nullptr;
  Block block{nullptr, size, 0};
  if (size > 0) {
    const platform::Fault fault = platform::AskFault(platform::Call::kMapMemory);
    if (fault != platform::Fault::kNone && fault != platform::Fault::kInterrupted) return nullptr;
    block.bytes.reset(std::calloc(static_cast<std::size_t>(size), 1));
    if (!block.bytes) return nullptr;
  }
  Blocks& blocks = AllBlocks();
  const std::lock_guard lock(blocks.mutex);
  return reinterpret_cast<HDIB>(blocks.table.Insert(std::move(block)));
} catch (...) {
  return nullptr;
}

std::int64_t GlobalMemorySize(HDIB memory) noexcept {
  Blocks& blocks = AllBlocks();
  const std::lock_guard lock(blocks.mutex);
  const Block* const block = blocks.table.Find(Number(memory));
  return block == nullptr ? 0 : block->size;
}

void* LockGlobalMemory(HDIB memory) noexcept {
  Blocks& blocks = AllBlocks();
  const std::lock_guard lock(blocks.mutex);
  Block* const block = blocks.table.Find(Number(memory));
  if (block == nullptr || !block->bytes) return nullptr;
  ++block->locks;
  return block->bytes.get();
}

bool UnlockGlobalMemory(HDIB memory) noexcept {
  Blocks& blocks = AllBlocks();
  const std::lock_guard lock(blocks.mutex);
  Block* const block = blocks.table.Find(Number(memory));
  if (block == nullptr || block->locks == 0) return false;
  return --block->locks > 0;
}

bool FreeGlobalMemory(HDIB memory) noexcept {
  Blocks& blocks = AllBlocks();
  const std::lock_guard lock(blocks.mutex);
  return blocks.table.Erase(Number(memory));
}

}  // namespace korin
