#pragma once

#include <cstdint>

#include "korinimage/export.h"
#include "korinimage/types.h"

// Movable memory blocks behind opaque handles, the form in which a packed bitmap
// changes hands. On Windows they are the system's own, and handles of the clipboard
// work too; elsewhere the library keeps a table of its own in the process.
//
//   here                  on Windows
//   AllocGlobalMemory     GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, size)
//   GlobalMemorySize      GlobalSize
//   LockGlobalMemory      GlobalLock
//   UnlockGlobalMemory    GlobalUnlock
//   FreeGlobalMemory      GlobalFree
//
// Thread rule: every function may be called from any thread. None throws. A dead or
// null handle is recognised (on Windows as far as the system does).
namespace korin {

// A block of `size` bytes, all zero; null when the size is negative or memory is
// short. The caller owns it until FreeGlobalMemory. A block of 0 bytes has a handle
// but no address.
KORINIMAGE_API HDIB AllocGlobalMemory(std::int64_t size) noexcept;

// The size in bytes, 0 for a dead handle. Exactly as asked for; on Windows possibly
// somewhat more.
KORINIMAGE_API std::int64_t GlobalMemorySize(HDIB memory) noexcept;

// The address of the bytes, aligned for every type, valid until the matching
// unlock; null for a dead handle or a block of 0 bytes. Locks count.
KORINIMAGE_API void* LockGlobalMemory(HDIB memory) noexcept;

// Takes one lock back. True while the block is still locked, false when the last
// lock went, when there was none, or for a dead handle.
KORINIMAGE_API bool UnlockGlobalMemory(HDIB memory) noexcept;

// Frees the block, locked or not; addresses of it are dead then. False for a dead
// handle.
KORINIMAGE_API bool FreeGlobalMemory(HDIB memory) noexcept;

}  // namespace korin
