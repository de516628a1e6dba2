#include "vm/key_set.h"

#include <algorithm>
#include <bit>
#include <cstddef>

namespace korin::vm {

namespace {

constexpr std::int64_t kBits = 64;

std::size_t WordOf(std::int64_t bit) { return static_cast<std::size_t>(bit / kBits); }
std::uint64_t MaskOf(std::int64_t bit) { return std::uint64_t{1} << (bit % kBits); }

}  // namespace

void KeySet::Reserve(std::int64_t end) {
  if (end <= m_end) return;
  end = std::max({end, 2 * m_end, kBits});
  std::size_t words = WordOf(end - 1) + 1;
  for (std::size_t level = 0;; ++level) {
    if (level < m_levels.size()) {
      m_levels[level].resize(words);
    } else {
      Level made(words);
      for (std::size_t i = 0; level > 0 && i < m_levels[level - 1].size(); ++i) {
        const auto bit = static_cast<std::int64_t>(i);
        if (m_levels[level - 1][i] != 0) made[WordOf(bit)] |= MaskOf(bit);
      }
      m_levels.push_back(std::move(made));
    }
    if (words == 1) break;
    words = WordOf(static_cast<std::int64_t>(words) - 1) + 1;
  }
  m_end = end;
}

void KeySet::Add(std::int64_t key) noexcept {
  for (Level& level : m_levels) {
    std::uint64_t& word = level[WordOf(key)];
    const bool hadSome = word != 0;
    word |= MaskOf(key);
    if (hadSome) return;
    key /= kBits;
  }
}

void KeySet::Remove(std::int64_t key) noexcept {
  for (Level& level : m_levels) {
    std::uint64_t& word = level[WordOf(key)];
    word &= ~MaskOf(key);
    if (word != 0) return;
    key /= kBits;
  }
}

std::int64_t KeySet::First() const {
  if (m_levels.empty() || m_levels.back().front() == 0) return -1;
  std::int64_t at = 0;
  for (std::size_t level = m_levels.size(); level-- > 0;) {
    at = at * kBits + std::countr_zero(m_levels[level][static_cast<std::size_t>(at)]);
  }
  return at;
}

}  // namespace korin::vm
