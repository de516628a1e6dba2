#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

#include "kernels/scratch_cache.h"
#include "korinimage/exceptions.h"
#include "korinimage/threads.h"

namespace korin::kernels {

// Samples below which counting is not worth waking another thread.
inline constexpr std::int64_t kWorthThreads = 1 << 16;

// Threads that count `samples` samples, when `samplesPerTable` of them pay for clearing
// and adding up the tables of one thread, and `most` threads have room for theirs.
inline std::int64_t CountingThreads(std::int64_t samples, std::int64_t samplesPerTable,
                                    std::int64_t most) {
  if (samples < kWorthThreads) return 1;
  return std::clamp<std::int64_t>(std::min(samples / samplesPerTable, most), 1, GetThreadCount());
}

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
