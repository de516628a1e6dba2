#pragma once

#include <cstdint>
#include <filesystem>

// Memory of the machine as this process may use it.
namespace korin::platform {

// All in bytes. On Linux every limit of the process's control groups counts as
// if the machine were that small.
struct MemoryFigures {
  std::uint64_t totalPhysical = 0;
  std::uint64_t availablePhysical = 0;  // could be had now without swapping
  std::uint64_t availableVirtual = 0;   // address space
  std::uint64_t kernelTotal = 0;        // the kernel's own
  std::uint64_t systemCache = 0;        // file cache
};

// Never throws; a figure that cannot be had falls back to a cruder one.
MemoryFigures QueryMemory();

#if defined(__linux__)
// The same from a tree that holds proc/ and the mounted control groups, for tests.
MemoryFigures QueryMemoryUnder(const std::filesystem::path& root);
#endif

}  // namespace korin::platform
