#pragma once

#include <cstdint>
#include <vector>

namespace korin::vm {

// A set of small numbers, a bit for each. Over every 64 words stands a word that tells
// which of them have bits, and so on, so that the smallest number is found in as many
// steps as there are levels, and what is looked at for a change stays in the caches.
class KeySet {
 public:
  // Makes room for keys below `end`. Strong guarantee.
  void Reserve(std::int64_t end);
  // There is room for the key.
  void Add(std::int64_t key) noexcept;
  void Remove(std::int64_t key) noexcept;
  // -1: the set is empty.
  std::int64_t First() const;

 private:
  using Level = std::vector<std::uint64_t>;

  std::int64_t m_end = 0;
  std::vector<Level> m_levels;  // the first has the keys, each next a bit per word
};

}  // namespace korin::vm
