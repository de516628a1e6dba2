#include "platform/volume.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>

#include <fstream>
#include <sstream>
#include <string>
#include <system_error>

#include "platform/fault.h"

namespace korin::platform {

namespace fs = std::filesystem;

namespace {

// The mount table's entry of a device: file system type and source.
struct Mount {
  std::string type;
  std::string source;
};

// Types as statfs numbers them are not unique (all of FUSE is one number), so the
// mount table's names decide.
Mount FindMount(dev_t device) {
  std::ifstream table("/proc/self/mountinfo");
  const std::string wanted = std::to_string(major(device)) + ":" + std::to_string(minor(device));
  Mount found;
  for (std::string line; std::getline(table, line);) {
    std::istringstream fields(line);
    std::string id, parent, number, word;
    fields >> id >> parent >> number;
    if (number != wanted) continue;
    while (fields >> word && word != "-") {
    }
    fields >> found.type >> found.source;
  }
  return found;
}

bool StartsWith(const std::string& text, const char* head) { return text.rfind(head, 0) == 0; }

bool IsRemoteType(const std::string& type) {
  for (const char* name : {"nfs", "cifs", "smb", "9p", "afs", "ceph", "lustre", "coda", "ncp",
                           "glusterfs", "beegfs", "ocfs2", "gfs2", "virtiofs", "drvfs"}) {
    if (StartsWith(type, name)) return true;
  }
  return StartsWith(type, "fuse") && type != "fuseblk";
}

// 1 removable, 0 fixed, -1 no answer; a partition asks its disk, a device made of
// others asks those.
int IsRemovable(const fs::path& device, int depth) {
  std::error_code error;
  const fs::path real = fs::canonical(device, error);
  if (error || depth > 8) return -1;
  if (fs::exists(real / "partition", error)) return IsRemovable(real.parent_path(), depth + 1);
  int answer = -1;
  for (fs::directory_iterator it(real / "slaves", error), end; !error && it != end;
       it.increment(error)) {
    const int below = IsRemovable(it->path(), depth + 1);
    if (below == 1) return 1;
    answer = below;
  }
  if (answer >= 0) return answer;
  int value = -1;
  std::ifstream(real / "removable") >> value;
  return value == 0 || value == 1 ? value : -1;
}

VolumeKind KindOfBlockDevice(dev_t device) {
  const std::string number = std::to_string(major(device)) + ":" + std::to_string(minor(device));
  switch (IsRemovable(fs::path("/sys/dev/block") / number, 0)) {
    case 0:
      return VolumeKind::kFixed;
    case 1:
      return VolumeKind::kRemovable;
    default:
      return VolumeKind::kUnknown;
  }
}

VolumeKind Classify(const fs::path& folder) {
  struct stat info {};
  struct statfs volume {};
  if (stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) return VolumeKind::kMissing;
  if (statfs(folder.c_str(), &volume) != 0) return VolumeKind::kUnknown;
  constexpr unsigned long kTmpfs = 0x01021994;
  constexpr unsigned long kRamfs = 0x858458f6;
  const auto magic = static_cast<unsigned long>(volume.f_type) & 0xffffffffUL;
  if (magic == kTmpfs || magic == kRamfs) return VolumeKind::kRamDisk;

  const Mount mount = FindMount(info.st_dev);
  if (IsRemoteType(mount.type)) return VolumeKind::kRemote;
  if (mount.type == "overlay" || mount.type == "zfs") return VolumeKind::kFixed;
  if (major(info.st_dev) != 0) return KindOfBlockDevice(info.st_dev);
  // An anonymous device (several disks under one file system): ask the source.
  struct stat source {};
  if (stat(mount.source.c_str(), &source) == 0 && S_ISBLK(source.st_mode)) {
    return KindOfBlockDevice(source.st_rdev);
  }
  return VolumeKind::kUnknown;
}

}  // namespace

VolumeKind GetVolumeKind(const fs::path& folder) {
  if (CurrentOverrides().volumeKind >= 0) {
    return static_cast<VolumeKind>(CurrentOverrides().volumeKind);
  }
  if (AskFault(Call::kQueryVolume) == Fault::kIoError) return VolumeKind::kUnknown;
  try {
    return Classify(folder);
  } catch (...) {
    return VolumeKind::kUnknown;
  }
}

bool IsBareDrive(const fs::path&) { return false; }

}  // namespace korin::platform
