#include "vm/region_cache.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include "platform/checked_math.h"
#include "platform/lasting.h"
#include "platform/memory_pages.h"

namespace korin::vm {

namespace {

constexpr bool kSmallSpace = sizeof(void*) == 4;
constexpr std::int64_t kMiB = 1 << 20;
constexpr std::int64_t kChunk = (kSmallSpace ? 8 : 64) * kMiB;
constexpr std::int64_t kAlone = kChunk / 2;     // regions from here on have a chunk each
constexpr std::int64_t kPaged = 64 << 10;       // regions from here on are whole pages
constexpr std::int64_t kSmallChunk = 4 * kMiB;  // for regions below that
constexpr std::int64_t kMostRegions = 4096;
constexpr std::int64_t kMostWarm = (kSmallSpace ? 32 : 256) * kMiB;
constexpr std::int64_t kLeastWarm = 8 * kMiB;
// Of a small address space so much stays free in one piece, for the stacks of
// threads, buffers and the heap of the rest of the program.
constexpr std::int64_t kOthersPart = 64 * kMiB;

std::int64_t RoundUp(std::int64_t size, std::int64_t unit) { return CeilDiv(size, unit) * unit; }

// Sizes are rounded up by an eighth at most, so that images of nearly equal size
// share a class; large regions only to whole pages.
std::int64_t ClassSize(std::int64_t size) {
  if (size < kPaged) return RoundUp(size, size <= 1024 ? 64 : 1024);
  std::int64_t step = platform::PageSize();
  if (size < kAlone) {
    while (step * 16 <= size) step *= 2;
  }
  return RoundUp(size, step);
}

void* MapBesideOthers(std::int64_t size) {
  void* const base = platform::MapPages(size);
  if (!kSmallSpace || base == nullptr) return base;
  if (void* const others = platform::MapPages(kOthersPart)) {
    platform::UnmapPages(others, kOthersPart);
    return base;
  }
  platform::UnmapPages(base, size);
  return nullptr;
}

std::int64_t ChunkSize(std::int64_t regionSize) {
  if (regionSize >= kAlone) return regionSize;
  const std::int64_t most = regionSize < kPaged ? kSmallChunk : kChunk;
  return RoundUp(std::min(most, regionSize * kMostRegions), platform::PageSize());
}

}  // namespace

RegionCache& RegionCache::Instance() {
  // Blocks of a manager in static storage outlive any order of destruction this file
  // could choose.
  return platform::Lasting<RegionCache>();
}

void RegionCache::AtUnload() noexcept {
  const std::unique_lock lock(m_mutex, std::try_to_lock);
  if (!lock) return;
  m_ended = true;
  DropUnused();
  if (m_chunks.empty()) m_classes.clear();
}

RegionCache::~RegionCache() {
  for (auto& [base, chunk] : m_chunks) platform::UnmapPages(chunk->base, chunk->bytes);
}

char* RegionCache::Address(const Region& region) const {
  const Chunk& chunk = *region.chunk;
  return chunk.base + (&region - chunk.regions.data()) * chunk.owner->size;
}

bool RegionCache::AddChunk(SizeClass& sizes) {
  auto made = std::make_unique<Chunk>();
  Chunk& chunk = *made;
  chunk.owner = &sizes;
  chunk.bytes = ChunkSize(sizes.size);
  chunk.regions.resize(static_cast<std::size_t>(chunk.bytes / sizes.size));
  chunk.base = static_cast<char*>(MapBesideOthers(chunk.bytes));
  if (chunk.base == nullptr && chunk.regions.size() > 1) {  // crowded: just one region
    chunk.bytes = RoundUp(sizes.size, platform::PageSize());
    chunk.regions.resize(1);
    chunk.base = static_cast<char*>(MapBesideOthers(chunk.bytes));
  }
  if (chunk.base == nullptr) return false;
  try {
    m_chunks.emplace(chunk.base, std::move(made));
  } catch (...) {
    platform::UnmapPages(chunk.base, chunk.bytes);
    throw;
  }
  for (Region& region : chunk.regions) {
    region.chunk = &chunk;
    region.zeroed = true;
    sizes.cold.PushBack(region);
  }
  m_figures.mapped += chunk.bytes;
  return true;
}

RegionCache::Taken RegionCache::Take(std::int64_t size) noexcept {
  if (size <= 0 || size > std::numeric_limits<std::int64_t>::max() - kChunk) return {};
  const std::lock_guard lock(m_mutex);
  try {
    const std::int64_t rounded = ClassSize(size);
    SizeClass& sizes = m_classes[rounded];
    sizes.size = rounded;
    const bool full = sizes.warm.Empty() && sizes.cold.Empty();
    if (full && !AddChunk(sizes) && !(DropUnused() && AddChunk(sizes))) return {};
    Region* region = nullptr;
    if (!sizes.warm.Empty()) {
      region = sizes.warm.First();
      sizes.warm.Remove(*region);
      m_warmByAge.Remove(*region);
      m_figures.warmFree -= rounded;
    } else {
      region = sizes.cold.First();
      sizes.cold.Remove(*region);
    }
    region->inUse = true;
    ++region->chunk->used;
    m_figures.inUse += rounded;
    m_peakInUse = std::max(m_peakInUse, m_figures.inUse);
    const Taken taken{Address(*region), region->zeroed};
    Trim();
    return taken;
  } catch (...) {
    return {};
  }
}

void RegionCache::Give(void* address) noexcept {
  const std::lock_guard lock(m_mutex);
  Chunk& chunk = *std::prev(m_chunks.upper_bound(static_cast<const char*>(address)))->second;
  SizeClass& sizes = *chunk.owner;
  const auto offset = static_cast<const char*>(address) - chunk.base;
  Region& region = chunk.regions[static_cast<std::size_t>(offset / sizes.size)];
  region.inUse = false;
  region.zeroed = false;
  --chunk.used;
  sizes.warm.PushFront(region);
  m_warmByAge.PushBack(region);
  m_figures.inUse -= sizes.size;
  m_figures.warmFree += sizes.size;
  Trim();
}

// Blocks in use and warm free ones together stay within what was in use at the
// highest, so the cache does not raise the process's peak.
void RegionCache::Trim() {
  const std::int64_t spare = std::max(kLeastWarm, m_peakInUse - m_figures.inUse);
  const std::int64_t most = m_ended ? 0 : std::min(kMostWarm, spare);
  while (m_figures.warmFree > most) {
    Region& oldest = *m_warmByAge.First();
    Chunk& chunk = *oldest.chunk;
    if (chunk.used == 0) {
      DropChunk(chunk);
      continue;
    }
    const std::int64_t size = chunk.owner->size;
    MakeCold(oldest, size >= kPaged && platform::DiscardPages(Address(oldest), size));
  }
}

// Gives back what is kept for classes that need nothing now: its addresses may be
// what another class lacks. False: there was nothing.
bool RegionCache::DropUnused() {
  const std::size_t before = m_chunks.size();
  for (auto next = m_chunks.begin(); next != m_chunks.end();) {
    Chunk& chunk = *next++->second;
    if (chunk.used == 0) DropChunk(chunk);
  }
  return m_chunks.size() < before;
}

void RegionCache::MakeCold(Region& region, bool zeroed) {
  SizeClass& sizes = *region.chunk->owner;
  if (m_warmByAge.Has(region)) {
    m_warmByAge.Remove(region);
    sizes.warm.Remove(region);
    sizes.cold.PushFront(region);
    m_figures.warmFree -= sizes.size;
  }
  region.zeroed = zeroed;
}

void RegionCache::DropChunk(Chunk& chunk) {
  if (!platform::UnmapPages(chunk.base, chunk.bytes)) {
    // The system cannot split its mappings any further: keep the addresses, give
    // the physical memory back.
    const bool zeroed = platform::DiscardPages(chunk.base, chunk.bytes);
    for (Region& region : chunk.regions) MakeCold(region, zeroed);
    return;
  }
  for (Region& region : chunk.regions) {
    MakeCold(region, true);
    chunk.owner->cold.Remove(region);
  }
  m_figures.mapped -= chunk.bytes;
  m_chunks.erase(chunk.base);
}

RegionCache::Figures RegionCache::GetFigures() const {
  const std::lock_guard lock(m_mutex);
  return m_figures;
}

}  // namespace korin::vm
