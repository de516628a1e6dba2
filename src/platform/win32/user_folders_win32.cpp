#include "platform/user_folders.h"

#include <string>

#include "platform/win32/windows_api.h"
// Behind the header that it builds on.
#include <objbase.h>
#include <shlobj.h>

namespace korin::platform {

std::optional<std::filesystem::path> EnvironmentPath(const char* name) {
  const std::wstring wide(name, name + std::char_traits<char>::length(name));
  std::wstring value(256, L'\0');
  for (;;) {
    const DWORD size =
        GetEnvironmentVariableW(wide.c_str(), value.data(), static_cast<DWORD>(value.size()));
    if (size == 0) return std::nullopt;
    const bool fits = size < value.size();
    value.resize(size);
    if (fits) return std::filesystem::path(value);
  }
}

std::filesystem::path UserConfigFolder() {
  PWSTR folder = nullptr;
  std::filesystem::path found;
  if (SHGetKnownFolderPath(FOLDERID_RoamingAppData, 0, nullptr, &folder) == S_OK) found = folder;
  CoTaskMemFree(folder);
  return found.empty() ? EnvironmentPath("APPDATA").value_or(std::filesystem::path()) : found;
}

}  // namespace korin::platform
