#include "vm/poison.h"

#ifdef KORINIMAGE_POISON

#include <array>
#include <cstring>
#include <mutex>
#include <new>
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

// The blocks let go last, kept out of reach. Taking one in needs no memory.
class Retired {
 public:
  void Add(Poisoned poisoned) {
    const std::lock_guard lock(m_mutex);
    Poisoned& oldest = m_kept[m_next++ % m_kept.size()];
    if (oldest.protectedBytes > 0) {
      platform::ProtectPages(oldest.memory->GetAddress(), oldest.protectedBytes, true);
    }
    oldest = std::move(poisoned);
  }

 private:
  std::mutex m_mutex;
  std::array<Poisoned, kKept> m_kept;
  std::size_t m_next = 0;
};

}  // namespace

bool MoveAndPoison(std::unique_ptr<CVmMemoryInterface>& memory, std::int64_t bytes) noexcept try {
  if (dynamic_cast<CVmWin32Memory*>(memory.get()) == nullptr) return false;
  static auto* retired = new Retired;
  auto fresh = CVmMemoryInterface::Alloc(bytes);
  if (!fresh || !fresh->IsValid()) return false;
  std::memcpy(fresh->GetAddress(), memory->GetAddress(), static_cast<std::size_t>(bytes));
  memory.swap(fresh);
  void* old = fresh->GetAddress();
  std::memset(old, 0xA5, static_cast<std::size_t>(bytes));
  Poisoned poisoned{std::move(fresh), ProtectableBytes(old, bytes)};
  if (poisoned.protectedBytes > 0 && !platform::ProtectPages(old, poisoned.protectedBytes, false)) {
    poisoned.protectedBytes = 0;
  }
  retired->Add(std::move(poisoned));
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

}  // namespace korin::vm

#endif
