#define WIN32_LEAN_AND_MEAN
#include <windows.h>
// Behind the header that it builds on.
#include <tlhelp32.h>

#include <algorithm>

#include "load_unload/dynamic_library.h"

namespace korin::test {

void* LoadLibraryAt(const char* path) {
  // The compiler's runtime, which would leave its reserve for exceptions behind each
  // time. An application of the same compiler holds it as well.
  static const HMODULE runtime = LoadLibraryA("libstdc++-6.dll");
  return runtime == nullptr ? nullptr : LoadLibraryA(path);
}

void* FindSymbol(void* library, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

bool UnloadLibrary(void* library) { return FreeLibrary(static_cast<HMODULE>(library)) != 0; }

bool IsLibraryLoaded(const char* fileName) { return GetModuleHandleA(fileName) != nullptr; }

int CountThreads() {
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 entry{};
  entry.dwSize = sizeof entry;
  int count = 0;
  for (BOOL more = Thread32First(snapshot, &entry); more != 0;
       more = Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID == GetCurrentProcessId()) ++count;
  }
  CloseHandle(snapshot);
  return count;
}

const std::int64_t kRuntimeKeeps = 150;

std::int64_t HeapBytes() {
  HANDLE heaps[64];
  const DWORD count = std::min<DWORD>(GetProcessHeaps(64, heaps), 64);
  std::int64_t bytes = 0;
  for (DWORD i = 0; i < count; ++i) {
    PROCESS_HEAP_ENTRY entry{};
    HeapLock(heaps[i]);
    while (HeapWalk(heaps[i], &entry) != 0) {
      if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) bytes += entry.cbData;
    }
    HeapUnlock(heaps[i]);
  }
  return bytes;
}

std::int64_t MappedBytes() {
  MEMORY_BASIC_INFORMATION part{};
  std::int64_t bytes = 0;
  for (const char* at = nullptr; VirtualQuery(at, &part, sizeof part) != 0;
       at = static_cast<const char*>(part.BaseAddress) + part.RegionSize) {
    if (part.State == MEM_COMMIT && part.Type == MEM_PRIVATE) {
      bytes += static_cast<std::int64_t>(part.RegionSize);
    }
  }
  return bytes;
}

void WaitMilliseconds(int milliseconds) { Sleep(static_cast<DWORD>(milliseconds)); }

}  // namespace korin::test
