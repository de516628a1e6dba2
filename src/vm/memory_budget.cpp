#include "vm/memory_budget.h"

#include <algorithm>
#include <limits>

namespace korin::vm {

namespace {

constexpr std::uint64_t kMiB = std::uint64_t{1} << 20;
constexpr auto kMost = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

std::uint64_t Minus(std::uint64_t a, std::uint64_t b) { return a > b ? a - b : 0; }

// Settings below zero count as zero.
std::uint64_t Setting(std::int32_t value) { return static_cast<std::uint64_t>(std::max(value, 0)); }

// value * percent / 100, saturating.
std::uint64_t Share(std::uint64_t value, std::int32_t percent) {
  const std::uint64_t factor = Setting(percent);
  if (factor != 0 && value > kMost / factor) return kMost / 100;
  return value * factor / 100;
}

std::uint32_t InMiB(std::uint64_t bytes) { return static_cast<std::uint32_t>(bytes / kMiB); }

// Meant as it stands: the kernel's own memory, bounded by what the system could
// use beside its file cache.
std::uint64_t AutomaticReserve(const platform::MemoryFigures& figures) {
  const std::uint32_t kernel = InMiB(figures.kernelTotal);
  const std::uint32_t available = InMiB(figures.availablePhysical);
  const std::uint32_t uncached =
      static_cast<std::uint32_t>(Minus(InMiB(figures.totalPhysical), InMiB(figures.systemCache)));
  return std::min(kernel, std::max(available, uncached)) * kMiB;
}

}  // namespace

MemoryBudget ComputeMemoryBudget(const CVmManagerConfiguration& configuration,
                                 const platform::MemoryFigures& figures, bool isWow64) {
  std::uint64_t reserve = configuration.ReservedMemory > 0
                              ? Setting(configuration.ReservedMemory) * kMiB
                              : AutomaticReserve(figures);
  std::uint64_t budget = Share(Minus(figures.totalPhysical, reserve), configuration.MemoryRatio);
  if (isWow64) {
    const std::uint64_t limit = Share(figures.availableVirtual, configuration.Wow64MemoryRatio);
    if (budget > limit) {
      budget = limit;
      reserve = 0;  // the address space binds, not the reserve
    }
  } else if (budget > figures.totalPhysical) {
    budget = figures.totalPhysical;
  } else if (budget > figures.availablePhysical && configuration.AvailPhysMemory) {
    budget = Share(figures.availablePhysical, configuration.MemoryRatio);
  }
  budget = std::max(budget, Setting(configuration.MinMemorySize) * kMiB);
  return {static_cast<std::int64_t>(std::min(reserve, kMost)),
          static_cast<std::int64_t>(std::min(budget, kMost))};
}

}  // namespace korin::vm
