#include "kernels/scratch_cache.h"

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <new>

#include "platform/lasting.h"

namespace korin {
namespace {

// A cache line; also more than any vector's alignment.
constexpr std::size_t kAlignment = 64;

// Sizes are rounded up so that calls of similar size share blocks.
std::size_t RoundedUp(std::size_t bytes) {
  const std::size_t unit = bytes < 4096 ? 256 : 4096;
  return (bytes + unit - 1) / unit * unit;
}

}  // namespace

// In front of each block, one alignment unit long.
struct ScratchCache::Header {
  void* allocation;
  std::size_t bytes;
};

ScratchCache& ScratchCache::Process() {
  // A pool thread may outlive static objects.
  return platform::Lasting<ScratchCache>();
}

ScratchCache::~ScratchCache() { AtUnload(); }

void ScratchCache::AtUnload() noexcept {
  const std::unique_lock lock(m_mutex, std::try_to_lock);
  if (!lock) return;
  for (Header*& header : m_slots) {
    if (header != nullptr) std::free(header->allocation);
    header = nullptr;
  }
  m_cachedBytes = kMostCached;  // no room for more
}

void* ScratchCache::Take(std::size_t bytes) {
  if (bytes > std::numeric_limits<std::size_t>::max() / 2) return nullptr;
  const std::size_t wanted = RoundedUp(bytes);
  {
    const std::lock_guard lock(m_mutex);
    Header** best = nullptr;
    for (Header*& slot : m_slots) {
      if (slot == nullptr || slot->bytes < wanted || slot->bytes / 2 > wanted) continue;
      if (best == nullptr || slot->bytes < (*best)->bytes) best = &slot;
    }
    if (best != nullptr) {
      Header* const header = *best;
      *best = nullptr;
      m_cachedBytes -= header->bytes;
      return reinterpret_cast<std::byte*>(header) + kAlignment;
    }
  }
  void* const allocation = std::malloc(wanted + 2 * kAlignment);
  if (allocation == nullptr) return nullptr;
  const auto address = reinterpret_cast<std::uintptr_t>(allocation);
  const std::uintptr_t aligned = (address + kAlignment - 1) / kAlignment * kAlignment;
  auto* const place = static_cast<std::byte*>(allocation) + (aligned - address);
  ::new (place) Header{allocation, wanted};
  return place + kAlignment;
}

void ScratchCache::Give(void* scratch) {
  if (scratch == nullptr) return;
  auto* const header = reinterpret_cast<Header*>(static_cast<std::byte*>(scratch) - kAlignment);
  {
    const std::lock_guard lock(m_mutex);
    if (header->bytes <= kMostCached - m_cachedBytes) {
      for (Header*& slot : m_slots) {
        if (slot != nullptr) continue;
        slot = header;
        m_cachedBytes += header->bytes;
        return;
      }
    }
  }
  std::free(header->allocation);
}

std::size_t ScratchCache::CachedBytes() const {
  const std::lock_guard lock(m_mutex);
  return m_cachedBytes;
}

}  // namespace korin
