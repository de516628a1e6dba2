#pragma once

#include <cstdint>
#include <filesystem>

// The volume that a folder lies on.
namespace korin::platform {

enum class VolumeKind : std::int32_t {
  kUnknown = 0,
  kMissing = 1,    // no such folder
  kRemovable = 2,  // cards, sticks, optical media
  kFixed = 3,
  kRemote = 4,  // network file systems, and user-mode ones that may be
  kRamDisk = 6,
};

// Never throws, never blocks on a network for longer than the system does.
VolumeKind GetVolumeKind(const std::filesystem::path& folder);

// Bytes that this process may still use on the folder's volume. Throws
// std::filesystem::filesystem_error for the operation "space".
std::int64_t AvailableBytes(const std::filesystem::path& folder);

// True for a drive without a folder ("D:"), which only Windows knows.
bool IsBareDrive(const std::filesystem::path& folder);

}  // namespace korin::platform
