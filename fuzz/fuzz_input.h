#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>

namespace korin::fuzz {

// Values taken off the front of a fuzzer's bytes; behind their end all are zero
// or empty.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

  bool Empty() const { return m_size == 0; }

  template <typename T>
  T Take() {
    static_assert(std::is_trivially_copyable_v<T>);
    T value = {};
    const std::size_t count = std::min(sizeof value, m_size);
    if (count > 0) std::memcpy(&value, m_data, count);
    Skip(count);
    return value;
  }

  // Up to the next byte `end`, which is skipped, or up to `limit` bytes.
  std::string TakeText(char end = '\n', std::size_t limit = 200) {
    std::string text;
    while (m_size > 0 && text.size() < limit) {
      const char c = static_cast<char>(*m_data);
      Skip(1);
      if (c == end) break;
      text += c;
    }
    return text;
  }

 private:
  void Skip(std::size_t count) {
    m_data += count;
    m_size -= count;
  }

  const std::uint8_t* m_data;
  std::size_t m_size;
};

// What a target promises beside not crashing.
inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "broken promise: %s\n", what);
  std::abort();
}

}  // namespace korin::fuzz
