#include "platform/keeper.h"

#include "platform/win32/windows_api.h"

namespace korin::platform {

namespace {

DWORD WINAPI Keep(LPVOID body);

// The library that this code lies in.
HMODULE ThisLibrary(DWORD flags) {
  HMODULE library = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | flags,
                     reinterpret_cast<LPCWSTR>(&Keep), &library);
  return library;
}

DWORD WINAPI Keep(LPVOID body) {
  reinterpret_cast<void (*)()>(body)();
  FreeLibraryAndExitThread(ThisLibrary(GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT), 0);
}

}  // namespace

bool StartKeeper(void (*body)()) noexcept {
  const HMODULE library = ThisLibrary(0);  // counts as one more load
  if (library == nullptr) return false;
  const HANDLE thread = CreateThread(nullptr, 0, Keep, reinterpret_cast<LPVOID>(body), 0, nullptr);
  if (thread == nullptr) {
    FreeLibrary(library);
    return false;
  }
  CloseHandle(thread);
  return true;
}

void AroundForks(void (*)(), void (*)()) noexcept {}

}  // namespace korin::platform
