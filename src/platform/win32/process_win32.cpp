#include "platform/process.h"

#include <io.h>

#include <limits>
#include <new>
#include <string>

#include "platform/fault.h"
#include "platform/win32/windows_api.h"

namespace korin::platform {

std::int64_t ProcessId() { return GetCurrentProcessId(); }

bool IsWow64() {
  if (CurrentOverrides().isWow64 >= 0) return CurrentOverrides().isWow64 == 1;
  BOOL emulated = FALSE;
  return IsWow64Process(GetCurrentProcess(), &emulated) != 0 && emulated != FALSE;
}

std::int64_t FileSizeLimit() {
  const std::int64_t asked = CurrentOverrides().fileSizeLimit;
  return asked >= 0 ? asked : std::numeric_limits<std::int64_t>::max();
}

// Through the C library's descriptor, so that a program that redirected it sees the
// line; below the library's own buffer, so that it goes out in one piece.
void WriteErrorLine(std::string_view line) noexcept try {
  std::string text(line);
  text += "\r\n";
  const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(2));
  DWORD written = 0;
  if (handle != INVALID_HANDLE_VALUE) {
    WriteFile(handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
  }
} catch (const std::bad_alloc&) {
}

}  // namespace korin::platform
