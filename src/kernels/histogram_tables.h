#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

#include "kernels/scratch_cache.h"
#include "korinimage/exceptions.h"

namespace korin::kernels {

// Tables of `cells` counts in all, each 0, from the scratch memory, which takes them
// back by ScratchCache::Give. Throws korin::CKorinImageBadAllocException.
inline std::uint32_t* TakeHistogramTables(std::int64_t cells) {
  const std::int64_t bytes = cells * static_cast<std::int64_t>(sizeof(std::uint32_t));
  auto* const tables =
      static_cast<std::uint32_t*>(ScratchCache::Process().Take(static_cast<std::size_t>(bytes)));
  if (tables == nullptr) {
    throw CKorinImageBadAllocException("no memory for histogram tables of " +
                                       std::to_string(bytes) + " bytes");
  }
  std::fill_n(tables, cells, 0u);
  return tables;
}

}  // namespace korin::kernels
