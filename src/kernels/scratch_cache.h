#pragma once

#include <array>
#include <cstddef>
#include <mutex>

namespace korin {

// Scratch memory of the pipelines, kept for the next call: fresh pages from the
// system cost more than the work done in them. Any thread.
class ScratchCache {
 public:
  // The one that the pipelines use.
  static ScratchCache& Process();

  ScratchCache() = default;
  ~ScratchCache();
  ScratchCache(const ScratchCache&) = delete;
  ScratchCache& operator=(const ScratchCache&) = delete;

  // At least `bytes` bytes, on a cache line of their own. Null when there is no
  // memory.
  void* Take(std::size_t bytes);
  void Give(void* scratch);

  std::size_t CachedBytes() const;

  // Nothing is kept from now on.
  void AtUnload() noexcept;

 private:
  static constexpr std::size_t kSlots = 32;
  static constexpr std::size_t kMostCached = std::size_t{32} << 20;

  struct Header;

  mutable std::mutex m_mutex;
  std::array<Header*, kSlots> m_slots{};
  std::size_t m_cachedBytes = 0;
};

}  // namespace korin
