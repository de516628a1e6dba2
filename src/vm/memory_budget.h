#pragma once

#include <cstdint>

#include "korinimage/vm_manager_configuration.h"
#include "platform/memory_figures.h"

namespace korin::vm {

// Bytes.
struct MemoryBudget {
  std::int64_t reserve = 0;  // left to the system
  std::int64_t budget = 0;   // for blocks
};

// What the settings make of the machine's memory.
MemoryBudget ComputeMemoryBudget(const CVmManagerConfiguration& configuration,
                                 const platform::MemoryFigures& figures, bool isWow64);

}  // namespace korin::vm
