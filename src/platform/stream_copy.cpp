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
// Several pages at once keep more of the memory's banks busy than one stream does.
constexpr std::size_t kPage = 4096;
constexpr std::size_t kPages = 4;
constexpr std::size_t kAhead = 4 * kLine;

// `to` is aligned to a line.
inline void StreamLine(char* to, const char* from) {
  __m128i parts[4];
  for (int i = 0; i < 4; ++i) {
    parts[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from) + i);
  }
  for (int i = 0; i < 4; ++i) _mm_stream_si128(reinterpret_cast<__m128i*>(to) + i, parts[i]);
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
    for (std::size_t line = at; line < at + kPage; line += kLine) {
      for (std::size_t page = 0; page < kPages; ++page) {
        const char* const source = in + line + page * kPage;
        _mm_prefetch(source + kAhead, _MM_HINT_T0);
        StreamLine(out + line + page * kPage, source);
      }
    }
  }
  for (; size - at >= kLine; at += kLine) StreamLine(out + at, in + at);
  _mm_sfence();
  std::memcpy(out + at, in + at, size - at);
}
#else
void StreamCopy(void* to, const void* from, std::size_t size) { std::memcpy(to, from, size); }
#endif

}  // namespace korin::platform
