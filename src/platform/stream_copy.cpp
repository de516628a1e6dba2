#include "platform/stream_copy.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace korin::platform {

#if defined(__SSE2__)
namespace {

constexpr std::size_t kLine = 64;
// Several pages at once keep more of the memory's banks busy than one stream does, and
// two lines of each at a time its fetching of neighbours.
constexpr std::size_t kPage = 4096;
constexpr std::size_t kPages = 4;
constexpr std::size_t kStep = 2 * kLine;

// kSize is a multiple of a line, `to` aligned to one.
template <std::size_t kSize>
inline void StreamLines(char* to, const char* from) {
  __m128i parts[kSize / 16];
  for (std::size_t i = 0; i < kSize / 16; ++i) {
    parts[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from) + i);
  }
  for (std::size_t i = 0; i < kSize / 16; ++i) {
    _mm_stream_si128(reinterpret_cast<__m128i*>(to) + i, parts[i]);
  }
}

}  // namespace

void StreamCopy(void* to, const void* from, std::size_t size) {
  auto* out = static_cast<char*>(to);
  const auto* in = static_cast<const char*>(from);
  // A line that is written in part goes through the caches.
  const std::size_t head = std::min(size, (~reinterpret_cast<std::uintptr_t>(out) + 1) % kLine);
  std::memcpy(out, in, head);
  std::size_t at = head;
  for (; size - at >= kPages * kPage; at += kPages * kPage) {
    for (std::size_t step = at; step < at + kPage; step += kStep) {
      for (std::size_t page = 0; page < kPages; ++page) {
        const char* const source = in + step + page * kPage;
        _mm_prefetch(source + kStep, _MM_HINT_T0);
        _mm_prefetch(source + kStep + kLine, _MM_HINT_T0);
        StreamLines<kStep>(out + step + page * kPage, source);
      }
    }
  }
  for (; size - at >= kLine; at += kLine) StreamLines<kLine>(out + at, in + at);
  _mm_sfence();
  std::memcpy(out + at, in + at, size - at);
}
#else
void StreamCopy(void* to, const void* from, std::size_t size) { std::memcpy(to, from, size); }
#endif

}  // namespace korin::platform
