#include "vm/poison.h"

#ifdef KORINIMAGE_POISON

#include <cstring>
#include <deque>
#include <mutex>
#include <utility>

#include "platform/memory_pages.h"

namespace korin::vm {

namespace {

constexpr std::size_t kKept = 64;

struct Poisoned {
  std::unique_ptr<CVmMemoryInterface> memory;
  std::int64_t protectedBytes = 0;
};

// Whole pages from the start of the block; blocks that do not begin on a page stay
// accessible.
std::int64_t ProtectableBytes(const void* address, std::int64_t bytes) {
  const std::int64_t page = platform::PageSize();
  if (reinterpret_cast<std::uintptr_t>(address) % static_cast<std::uintptr_t>(page) != 0) return 0;
  return bytes / page * page;
}

void Retire(Poisoned poisoned) {
  static std::mutex mutex;
  static auto* kept = new std::deque<Poisoned>;
  const std::lock_guard lock(mutex);
  kept->push_back(std::move(poisoned));
  if (kept->size() <= kKept) return;
  Poisoned& oldest = kept->front();
  if (oldest.protectedBytes > 0) {
    platform::ProtectPages(oldest.memory->GetAddress(), oldest.protectedBytes, true);
  }
  kept->pop_front();
}

}  // namespace

void MoveAndPoison(std::unique_ptr<CVmMemoryInterface>& memory, std::int64_t bytes) noexcept {
  if (dynamic_cast<CVmWin32Memory*>(memory.get()) == nullptr) return;
  auto fresh = CVmMemoryInterface::Alloc(bytes);
  if (!fresh || !fresh->IsValid()) return;
  std::memcpy(fresh->GetAddress(), memory->GetAddress(), static_cast<std::size_t>(bytes));
  memory.swap(fresh);
  void* old = fresh->GetAddress();
  std::memset(old, 0xA5, static_cast<std::size_t>(bytes));
  Poisoned poisoned{std::move(fresh), ProtectableBytes(old, bytes)};
  if (poisoned.protectedBytes > 0 && !platform::ProtectPages(old, poisoned.protectedBytes, false)) {
    poisoned.protectedBytes = 0;
  }
  Retire(std::move(poisoned));
}

}  // namespace korin::vm

#endif
