#include "limits.h"

#include <cstring>

#include "kernels/parallel.h"

// Plain loops; where the compiler can choose at run time they use the wide vectors.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define KORIN_WIDE_VECTORS __attribute__((target_clones("avx2", "default"), optimize("O3")))
#else
#define KORIN_WIDE_VECTORS
#endif

namespace korin::bench {

namespace {

constexpr std::int64_t kPart = 4096;  // bytes read before the share of them is written

// On the library's own threads: they are there, as they are for what is measured.
template <typename Piece>
void Share(std::int64_t parts, int threads, Piece piece) {
  ParallelFor(threads,
              [&](std::int64_t t) { piece(parts * t / threads, parts * (t + 1) / threads); });
}

KORIN_WIDE_VECTORS std::uint64_t Sum(const std::uint64_t* words, std::int64_t count) {
  std::uint64_t sums[32] = {};
  for (std::int64_t i = 0; i + 32 <= count; i += 32) {
    for (std::int64_t lane = 0; lane < 32; ++lane) sums[lane] ^= words[i + lane];
  }
  std::uint64_t all = 0;
  for (const std::uint64_t sum : sums) all ^= sum;
  return all;
}

// Reads `count` words and writes the first `written` of the result.
KORIN_WIDE_VECTORS void Mix(const std::uint64_t* words, std::int64_t count, std::uint64_t* to,
                            std::int64_t written) {
  if (written >= count) {  // as many or more are written
    const std::int64_t times = written / count;
    for (std::int64_t k = 0; k < times; ++k) {
      for (std::int64_t i = 0; i < count; ++i) to[k * count + i] = words[i] + 1;
    }
    return;
  }
  const std::int64_t times = count / written;
  for (std::int64_t i = 0; i < written; ++i) to[i] = words[i];
  for (std::int64_t k = 1; k < times; ++k) {
    for (std::int64_t i = 0; i < written; ++i) to[i] += words[k * written + i];
  }
}

volatile std::uint64_t g_sink;

}  // namespace

void ReadAll(const void* from, std::int64_t bytes, int threads) {
  Share(bytes / kPart, threads, [=](std::int64_t first, std::int64_t end) {
    g_sink = Sum(static_cast<const std::uint64_t*>(from) + first * (kPart / 8),
                 (end - first) * (kPart / 8));
  });
}

void ReadAndWrite(const void* from, std::int64_t bytes, void* to, std::int64_t written,
                  int threads) {
  const std::int64_t part = kPart * written / bytes;
  Share(bytes / kPart, threads, [=](std::int64_t first, std::int64_t end) {
    for (std::int64_t i = first; i < end; ++i) {
      Mix(static_cast<const std::uint64_t*>(from) + i * (kPart / 8), kPart / 8,
          static_cast<std::uint64_t*>(to) + i * (part / 8), part / 8);
    }
  });
}

void CopyAll(const void* from, void* to, std::int64_t bytes, int threads) {
  Share(bytes, threads, [=](std::int64_t first, std::int64_t end) {
    std::memcpy(static_cast<char*>(to) + first, static_cast<const char*>(from) + first,
                static_cast<std::size_t>(end - first));
  });
}

void SetAll(void* to, std::int64_t bytes, int threads) {
  Share(bytes, threads, [=](std::int64_t first, std::int64_t end) {
    std::memset(static_cast<char*>(to) + first, 7, static_cast<std::size_t>(end - first));
  });
}

}  // namespace korin::bench
