#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "korinimage/export.h"

// Settings of one memory manager. A plain value; the manager owns the record it
// is created with and copies what it needs, so later edits change nothing.
class KORINIMAGE_API CVmManagerConfiguration {
 public:
  std::int32_t BlockSize = 262144;     // bytes of one manager block; <= 0 counts as 262144
  std::int32_t MemoryRatio = 70;       // percent of (physical memory - reserve); <= 0 counts as 0
  std::int32_t MinMemorySize = 32;     // MiB, floor of the memory budget; < 0 counts as 0
  std::int32_t ReservedMemory = -1;    // MiB left to the system; <= 0: computed
  std::int64_t MaxDiskSize = 8000;     // MiB, ceiling of swap space
  std::int32_t Wow64MemoryRatio = 90;  // percent of the free address space, 32-bit process only
  bool AvailPhysMemory = true;         // limit the budget by the memory available now
  std::wstring VMDrive;                // folder for swap files; empty: the temporary folder

  // The defaults above.
  static std::unique_ptr<CVmManagerConfiguration> DefaultConfiguration();
  // What section "VMManager" of the settings says, each absent value at its
  // default. Nothing is validated except that a BlockSize (stored in KiB) that is
  // negative or does not fit becomes the default.
  static std::unique_ptr<CVmManagerConfiguration> CurrentConfiguration();
};

// Settings and figures of a manager, as a settings dialog shows them.
struct VMSTATUS {
  std::int64_t blockSize = 0;       // KiB
  std::int64_t memoryRatio = 0;     // percent
  std::int64_t reservedMemory = 0;  // MiB, -1 when automatic
  std::int64_t minimumMemory = 0;   // MiB
  std::int64_t maximumDisk = 0;     // MiB
  std::int64_t freeDisk = 0;        // MiB usable for swap, found when the last manager was created
  std::wstring swapFolder;          // the folder in use
  std::wstring vmDrive;             // the validated VMDrive, empty: temporary folder
};
