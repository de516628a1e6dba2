#include "platform/swap_sweep.h"

#include <algorithm>
#include <string>
#include <vector>

#include "platform/exchange_names.h"
#include "platform/shared_mapping.h"
#include "platform/win32/leftovers.h"

namespace korin::platform {

namespace fs = std::filesystem;

namespace {

constexpr int kMaxDepth = 32;

using win32::Entry;
using win32::List;
using win32::RemoveFile;
using win32::TakeAbandoned;

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
