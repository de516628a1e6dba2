#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "korinimage/vm_image.h"

namespace korin::test {

// Every byte of a store, planes and lines in order, out of it and into it.
inline std::vector<BYTE> StoreBytes(CVmImage& store) {
  std::vector<BYTE> bytes;
  for (std::int64_t block = 0; block < store.GetBlockCount(); ++block) {
    const BlockGuard guard = store.PinBlock(block, BlockIntent::Read);
    bytes.insert(bytes.end(), guard.Address(),
                 guard.Address() + store.GetBlockLineCount(block) * store.GetBytesPerLine());
  }
  return bytes;
}

inline void SetStoreBytes(CVmImage& store, const std::vector<BYTE>& bytes) {
  const BYTE* from = bytes.data();
  for (std::int64_t block = 0; block < store.GetBlockCount(); ++block) {
    const BlockGuard guard = store.PinBlock(block, BlockIntent::Overwrite);
    const std::int64_t size = store.GetBlockLineCount(block) * store.GetBytesPerLine();
    std::memcpy(guard.Address(), from, static_cast<std::size_t>(size));
    from += size;
  }
}

}  // namespace korin::test
