#pragma once

// Names of the memory manager's settings.
namespace korin::vm::settings {

inline constexpr const char* kSection = "VMManager";
inline constexpr const char* kBlockSize = "BlockSize";  // KiB
inline constexpr const char* kMemoryRatio = "MemoryRatio";
inline constexpr const char* kMinMemorySize = "MinMemorySize";
inline constexpr const char* kReservedMemory = "ReservedMemory";
inline constexpr const char* kVmDrive = "VMDrive";
inline constexpr const char* kMaxDiskSize = "MaxDiskSize";
inline constexpr const char* kWow64MemoryRatio = "Wow64MemoryRatio";
inline constexpr const char* kAvailPhysMemory = "AvailPhysMemory";
inline constexpr const char* kAcquiredMemory = "AcquiredMemory";  // MiB, written only

inline constexpr int kDefaultMaxDiskSize = 8000;  // MiB

}  // namespace korin::vm::settings
