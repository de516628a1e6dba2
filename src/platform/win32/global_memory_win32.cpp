#include "korinimage/global_memory.h"

#include <cstddef>

#include "platform/win32/file_calls.h"

namespace korin {

HDIB AllocGlobalMemory(std::int64_t size) noexcept {
  const auto bytes = static_cast<std::size_t>(size);
  if (size < 0 || static_cast<std::int64_t>(bytes) != size) return nullptr;
  if (size > 0 && platform::win32::Injected(platform::Call::kMapMemory)) return nullptr;
  return GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, bytes);
}

std::int64_t GlobalMemorySize(HDIB memory) noexcept {
  return memory == nullptr ? 0 : static_cast<std::int64_t>(GlobalSize(memory));
}

void* LockGlobalMemory(HDIB memory) noexcept {
  return memory == nullptr ? nullptr : GlobalLock(memory);
}

bool UnlockGlobalMemory(HDIB memory) noexcept {
  return memory != nullptr && GlobalUnlock(memory) != 0;
}

bool FreeGlobalMemory(HDIB memory) noexcept {
  return memory != nullptr && GlobalFree(memory) == nullptr;
}

}  // namespace korin
