#include "platform/memory_pages.h"

#include <cstddef>

#include "platform/win32/file_calls.h"

namespace korin::platform {

std::int64_t PageSize() {
  static const std::int64_t size = [] {
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return std::int64_t{info.dwPageSize};
  }();
  return size;
}

void* MapPages(std::int64_t size) {
  if (size <= 0 || size > kLargestMapping || win32::Injected(Call::kMapMemory)) return nullptr;
  return VirtualAlloc(nullptr, static_cast<std::size_t>(size), MEM_COMMIT | MEM_RESERVE,
                      PAGE_READWRITE);
}

bool UnmapPages(void* address, std::int64_t) {
  return !win32::Injected(Call::kUnmapMemory) && VirtualFree(address, 0, MEM_RELEASE) != 0;
}

// Only the physical memory goes, not the promise of it: giving that back as well
// and asking for it again could fail, and the addresses would be lost. Nothing makes
// the bytes zeros, so the answer is no.
bool DiscardPages(void* address, std::int64_t size) {
  if (!win32::Injected(Call::kUnmapMemory)) {
    VirtualAlloc(address, static_cast<std::size_t>(size), MEM_RESET, PAGE_READWRITE);
  }
  return false;
}

bool ProtectPages(void* address, std::int64_t size, bool accessible) {
  DWORD former = 0;
  return VirtualProtect(address, static_cast<std::size_t>(size),
                        accessible ? PAGE_READWRITE : PAGE_NOACCESS, &former) != 0;
}

}  // namespace korin::platform
