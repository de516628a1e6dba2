#pragma once

#include <cstdint>
#include <memory>

#include "korinimage/vm_memory_interface.h"

namespace korin::vm {

// In a build with KORINIMAGE_POISON: moves a block whose last holder has let go to
// fresh memory, fills the old place with 0xA5 and forbids access to it for a while,
// so that an address kept too long is found out. True when it moved. Otherwise nothing.
#ifdef KORINIMAGE_POISON
bool MoveAndPoison(std::unique_ptr<CVmMemoryInterface>& memory, std::int64_t bytes) noexcept;
#else
inline bool MoveAndPoison(std::unique_ptr<CVmMemoryInterface>&, std::int64_t) noexcept {
  return false;
}
#endif

}  // namespace korin::vm
