#include "platform/memory_figures.h"

#include "platform/fault.h"
#include "platform/win32/windows_api.h"
// Behind the header that it builds on.
#include <psapi.h>

namespace korin::platform {

MemoryFigures QueryMemory() {
  if (CurrentOverrides().memory != nullptr) return *CurrentOverrides().memory;
  MemoryFigures figures;
  const bool broken = AskFault(Call::kQueryMemory) != Fault::kNone;

  MEMORYSTATUSEX status{};
  status.dwLength = sizeof status;
  if (!broken && GlobalMemoryStatusEx(&status) != 0) {
    figures.totalPhysical = status.ullTotalPhys;
    figures.availablePhysical = status.ullAvailPhys;
    figures.availableVirtual = status.ullAvailVirtual;
  } else {
    figures.availableVirtual = std::uint64_t{1} << (sizeof(void*) == 4 ? 31 : 47);
  }
  PERFORMANCE_INFORMATION info{};
  if (!broken && GetPerformanceInfo(&info, sizeof info) != 0) {
    figures.kernelTotal = std::uint64_t{info.KernelTotal} * info.PageSize;
    figures.systemCache = std::uint64_t{info.SystemCache} * info.PageSize;
  }
  return figures;
}

}  // namespace korin::platform
