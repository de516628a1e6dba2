#include "platform/volume.h"

#include "platform/fault.h"
#include "platform/win32/windows_api.h"

namespace korin::platform {

namespace {

VolumeKind Classify(std::filesystem::path folder) {
  if (IsBareDrive(folder)) folder += L"\\";
  const DWORD attributes = GetFileAttributesW(folder.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
    return VolumeKind::kMissing;
  }
  // The root of the volume that the folder lies on, which may be mounted in a folder.
  std::wstring root(32768, L'\0');
  if (GetVolumePathNameW(folder.c_str(), root.data(), static_cast<DWORD>(root.size())) == 0) {
    return VolumeKind::kUnknown;
  }
  switch (GetDriveTypeW(root.c_str())) {
    case DRIVE_REMOVABLE:
    case DRIVE_CDROM:
      return VolumeKind::kRemovable;
    case DRIVE_FIXED:
      return VolumeKind::kFixed;
    case DRIVE_REMOTE:
      return VolumeKind::kRemote;
    case DRIVE_RAMDISK:
      return VolumeKind::kRamDisk;
    case DRIVE_NO_ROOT_DIR:
      return VolumeKind::kMissing;
    default:
      return VolumeKind::kUnknown;
  }
}

}  // namespace

VolumeKind GetVolumeKind(const std::filesystem::path& folder) {
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

bool IsBareDrive(const std::filesystem::path& folder) {
  const std::wstring& name = folder.native();
  return !name.empty() && name.back() == L':';
}

}  // namespace korin::platform
