#include "platform/swap_sweep.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "platform/exchange_names.h"
#include "platform/shared_mapping.h"
#include "platform/text.h"
#include "platform/win32/file_calls.h"

namespace korin::platform {

namespace fs = std::filesystem;

namespace {

constexpr int kMaxDepth = 32;

struct Entry {
  fs::path path;
  std::string name;
  bool isFolder;
  bool isLink;
};

std::vector<Entry> List(const fs::path& folder) {
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
win32::FileHandle TakeAbandoned(const fs::path& file, DWORD flags) {
  return win32::Open(file, DELETE, 0, OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT | flags);
}

void RemoveFile(const fs::path& file) {
  if (AskFault(Call::kRemoveFile) == Fault::kNone) TakeAbandoned(file, FILE_FLAG_DELETE_ON_CLOSE);
}

// Also what stands for a link to a folder: the link goes, its target stays.
void RemoveFolder(const fs::path& folder) {
  if (AskFault(Call::kRemoveFile) == Fault::kNone) RemoveDirectoryW(folder.c_str());
}

void RemoveContents(const fs::path& folder, int depth) {
  for (const Entry& entry : List(folder)) {
    if (!entry.isFolder) {
      RemoveFile(entry.path);
      continue;
    }
    if (!entry.isLink && depth < kMaxDepth) RemoveContents(entry.path, depth + 1);
    RemoveFolder(entry.path);
  }
}

// One swap file that somebody holds keeps the whole folder.
bool IsHeld(const fs::path& folder) {
  const std::vector<Entry> entries = List(folder);
  return std::any_of(entries.begin(), entries.end(), [](const Entry& entry) {
    return !entry.isFolder && ClassifySwapName(entry.name) == SwapName::kFile &&
           !TakeAbandoned(entry.path, 0);
  });
}

// The pixels of an image whose writer or reader lives.
bool IsAwaited(std::string_view name) {
  return name == kExchangeFileName && IsSharedMappingHeld(kImageMappingName);
}

void SweepEntry(const Entry& entry) {
  const SwapName kind = ClassifySwapName(entry.name);
  if (kind == SwapName::kOther || IsAwaited(entry.name)) return;
  if (!entry.isFolder) {
    RemoveFile(entry.path);
    return;
  }
  if (kind == SwapName::kFolder && !entry.isLink) {
    if (IsHeld(entry.path)) return;
    RemoveContents(entry.path, 0);
  }
  RemoveFolder(entry.path);  // one with a file's name goes only when it is empty
}

}  // namespace

void SweepSwapFiles(const fs::path& folder) noexcept {
  try {
    for (const Entry& entry : List(folder)) SweepEntry(entry);
  } catch (...) {  // no memory for the names: the next start sweeps
  }
}

}  // namespace korin::platform
