#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "platform/text.h"
#include "platform/win32/file_calls.h"

// What ended processes left in a folder: whatever nobody has open.
namespace korin::platform::win32 {

struct Entry {
  std::filesystem::path path;
  std::string name;
  bool isFolder;
  bool isLink;
};

inline std::vector<Entry> List(const std::filesystem::path& folder) {
  std::vector<Entry> entries;
  WIN32_FIND_DATAW data;
  const HANDLE search = FindFirstFileW((folder / L"*").c_str(), &data);
  if (search == INVALID_HANDLE_VALUE) return entries;
  try {
    do {
      const std::wstring name = data.cFileName;
      if (name == L"." || name == L"..") continue;
      entries.push_back({folder / name, ToUtf8(name),
                         (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0,
                         (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0});
    } while (FindNextFileW(search, &data) != 0);
  } catch (...) {
    FindClose(search);
    throw;
  }
  FindClose(search);
  return entries;
}

// Opened alone: fails while anybody has the file, however generously it is shared.
inline FileHandle TakeAbandoned(const std::filesystem::path& file, DWORD flags) {
  return Open(file, DELETE, 0, OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT | flags);
}

inline void RemoveFile(const std::filesystem::path& file) {
  if (AskFault(Call::kRemoveFile) == Fault::kNone) TakeAbandoned(file, FILE_FLAG_DELETE_ON_CLOSE);
}

}  // namespace korin::platform::win32
