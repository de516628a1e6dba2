#define WIN32_LEAN_AND_MEAN
#include <windows.h>
// Behind the header that it builds on.
#include <tlhelp32.h>

#include "load_unload/dynamic_library.h"

namespace korin::test {

void* LoadLibraryAt(const char* path) { return LoadLibraryA(path); }

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

void WaitMilliseconds(int milliseconds) { Sleep(static_cast<DWORD>(milliseconds)); }

}  // namespace korin::test
