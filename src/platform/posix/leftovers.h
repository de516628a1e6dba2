#pragma once

#include <dirent.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/posix/file_calls.h"

// What ended processes left in a folder: files carry a lock while their owner lives.
namespace korin::platform::posix {

// The names in an open folder.
inline std::vector<std::string> List(int folder) {
  std::vector<std::string> names;
  const int copy = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (copy < 0) return names;
  DIR* entries = fdopendir(copy);
  if (entries == nullptr) {
    close(copy);
    return names;
  }
  try {
    while (const dirent* entry = readdir(entries)) {
      const std::string_view name = entry->d_name;
      if (name != "." && name != "..") names.emplace_back(name);
    }
  } catch (...) {
    closedir(entries);
    throw;
  }
  closedir(entries);
  return names;
}

// Opens and locks a regular file of ours that nobody holds; an empty descriptor
// when it is any other thing.
inline Descriptor TakeAbandoned(int folder, const char* name, const struct stat& seen) {
  if (AskFault(Call::kOpenFile) != Fault::kNone) return Descriptor(-1);
  Descriptor file(openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat opened {};
  const bool taken = file && fstat(file.Get(), &opened) == 0 && IsSameFile(opened, seen) &&
                     TryLock(file.Get(), LOCK_EX) == LockResult::kTaken &&
                     IsNamed(file.Get(), name, folder);
  return taken ? std::move(file) : Descriptor(-1);
}

inline void Remove(int folder, const char* name, int flags) {
  if (AskFault(Call::kRemoveFile) == Fault::kNone) unlinkat(folder, name, flags);
}

}  // namespace korin::platform::posix
