#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "korinimage/vm_memory_interface.h"

// Where a manager swaps and how much.
namespace korin::vm {

// The folder that a VMDrive setting names, empty when it is empty or names no
// folder on a fixed drive or RAM disk. A relative one is taken from the current
// folder.
std::filesystem::path ValidatedDrive(const std::wstring& vmDrive);

// The folder for a swap file: `drive`, the temporary folder when it is empty, a
// new numbered folder when it is a bare drive. Throws as CVmManager::Create does.
std::filesystem::path ChooseSwapFolder(const std::filesystem::path& drive);

// Creates the first free one of base.000 to base.999 and returns it. Throws
// std::runtime_error "Disk full: " and `name` when there is none.
std::filesystem::path MakeNumberedFolder(const std::filesystem::path& base,
                                         const std::string& name);

// Manager blocks of `free` that swapping may use: four fifths.
std::int64_t UsableBlocks(std::int64_t freeBlocks);

// The swap file of a manager and its limits.
struct SwapSpace {
  std::unique_ptr<CVmVirtualMemory> backend;  // may be empty: no swapping
  std::int64_t limitBlocks = 0;
  std::int64_t freeMiB = 0;  // usable when it was set up
};
// `freeBlocks` of the folder's volume; `maxDiskMiB` the user's ceiling.
SwapSpace OpenSwapSpace(const std::filesystem::path& folder, std::int64_t freeBlocks,
                        std::int64_t blockSize, std::int64_t maxDiskMiB);

}  // namespace korin::vm
