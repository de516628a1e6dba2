#include "vm/swap_space.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <stdexcept>

#include "platform/checked_math.h"
#include "platform/memory_figures.h"
#include "platform/process.h"
#include "platform/text.h"
#include "platform/volume.h"

namespace korin::vm {

namespace fs = std::filesystem;
using platform::VolumeKind;

fs::path ValidatedDrive(const std::wstring& vmDrive) {
  if (vmDrive.empty()) return {};
  fs::path drive = platform::WideToPath(vmDrive);
  if (!platform::IsBareDrive(drive)) {
    std::error_code error;
    drive = fs::absolute(drive, error);
    if (error) return {};
  }
  const VolumeKind kind = platform::GetVolumeKind(drive);
  return kind == VolumeKind::kFixed || kind == VolumeKind::kRamDisk ? drive : fs::path();
}

fs::path MakeNumberedFolder(const fs::path& base, const std::string& name) {
  for (int number = 0; number <= 999; ++number) {
    char extension[16];
    std::snprintf(extension, sizeof extension, ".%03d", number);
    fs::path folder = base;
    folder += extension;
    std::error_code error;
    if (fs::create_directory(folder, error)) return folder;
  }
  throw std::runtime_error("Disk full: " + name);
}

fs::path ChooseSwapFolder(const fs::path& drive) {
  if (drive.empty()) return fs::temp_directory_path();
  if (!platform::IsBareDrive(drive)) return drive;
  fs::path base = drive;
  base += "\\~QV";
  return MakeNumberedFolder(base, drive.string());
}

std::int64_t UsableBlocks(std::int64_t freeBlocks) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
  const std::int64_t blocks = std::max<std::int64_t>(freeBlocks, 0);
  return std::min(blocks / 10 * 8 + blocks % 10 * 8 / 10, kMost);
}

SwapSpace OpenSwapSpace(const fs::path& folder, std::int64_t freeBlocks, std::int64_t blockSize,
                        std::int64_t maxDiskMiB) {
  constexpr std::int64_t kMiB = 1 << 20;
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  SwapSpace space;
  std::int64_t usable = UsableBlocks(freeBlocks);
  if (platform::GetVolumeKind(folder) == VolumeKind::kRamDisk) {
    // Such a disk is memory: what the machine cannot hold is not free there.
    const auto available = static_cast<std::int64_t>(std::min<std::uint64_t>(
        platform::QueryMemory().availablePhysical, static_cast<std::uint64_t>(kMost)));
    usable = std::min(usable, UsableBlocks(available / blockSize));
  }
  if (usable <= 0) return space;
  space.backend = CVmVirtualMemory::Create(folder);
  if (!space.backend->IsOpen()) {
    space.backend.reset();
    return space;
  }
  space.freeMiB = CheckedMul(blockSize, usable).value_or(kMost) / kMiB;
  const std::int64_t most =
      CheckedMul(std::max<std::int64_t>(maxDiskMiB, 0), kMiB).value_or(kMost) / blockSize;
  space.limitBlocks = std::min({most, usable, platform::FileSizeLimit() / blockSize});
  return space;
}

}  // namespace korin::vm
