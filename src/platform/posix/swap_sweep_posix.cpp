#include "platform/swap_sweep.h"

#include <string>
#include <vector>

#include "platform/exchange_names.h"
#include "platform/posix/leftovers.h"
#include "platform/shared_mapping.h"

namespace korin::platform {

namespace {

constexpr int kMaxDepth = 32;

using posix::Descriptor;
using posix::List;
using posix::Remove;
using posix::TakeAbandoned;

// Empties a folder through its descriptor, so that no name is resolved twice.
void RemoveContents(int folder, dev_t device, int depth) {
  for (const std::string& name : List(folder)) {
    struct stat info {};
    if (fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (!S_ISDIR(info.st_mode)) {
      Remove(folder, name.c_str(), 0);
      continue;
    }
    if (info.st_dev != device || depth >= kMaxDepth) continue;  // a mount, or a trap
    const Descriptor below(
        openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!below) continue;
    RemoveContents(below.Get(), device, depth + 1);
    Remove(folder, name.c_str(), AT_REMOVEDIR);
  }
}

void SweepFolder(int parent, const char* name, const struct stat& seen) {
  const Descriptor folder(openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat opened {};
  if (!folder || fstat(folder.Get(), &opened) != 0 || !posix::IsSameFile(opened, seen)) return;
  // One swap file that somebody holds keeps the whole folder.
  std::vector<Descriptor> locks;
  for (const std::string& entry : List(folder.Get())) {
    struct stat info {};
    if (ClassifySwapName(entry) != SwapName::kFile) continue;
    if (fstatat(folder.Get(), entry.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) return;
    if (!S_ISREG(info.st_mode)) continue;
    Descriptor lock = TakeAbandoned(folder.Get(), entry.c_str(), info);
    if (!lock) return;
    locks.push_back(std::move(lock));
  }
  RemoveContents(folder.Get(), opened.st_dev, 0);
  Remove(parent, name, AT_REMOVEDIR);
}

void SweepEntry(int folder, const std::string& name, SwapName kind) {
  struct stat info {};
  if (fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) return;
  if (info.st_uid != geteuid()) return;
  if (S_ISLNK(info.st_mode)) {
    Remove(folder, name.c_str(), 0);
  } else if (S_ISREG(info.st_mode)) {
    // An image on its way waits for its reader as long as somebody keeps the
    // exchange open, even when its writer has let go of the file.
    if (name == kExchangeFileName && IsSharedMappingHeld(kImageMappingName)) return;
    const Descriptor lock = TakeAbandoned(folder, name.c_str(), info);
    if (lock) Remove(folder, name.c_str(), 0);
  } else if (S_ISDIR(info.st_mode)) {
    // A folder with a file's name goes only when it is empty.
    if (kind == SwapName::kFile) {
      Remove(folder, name.c_str(), AT_REMOVEDIR);
    } else {
      SweepFolder(folder, name.c_str(), info);
    }
  }
}

}  // namespace

void SweepSwapFiles(const std::filesystem::path& folder) noexcept {
  try {
    const Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened) return;
    for (const std::string& name : List(opened.Get())) {
      const SwapName kind = ClassifySwapName(name);
      if (kind != SwapName::kOther) SweepEntry(opened.Get(), name, kind);
    }
  } catch (...) {  // no memory for the names: the next start sweeps
  }
}

}  // namespace korin::platform
