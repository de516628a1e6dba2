#include "kernels/sample_counter.h"

#include <algorithm>
#include <atomic>
#include <limits>

#include "kernels/histogram_tables.h"
#include "kernels/scratch_cache.h"
#include "platform/checked_math.h"

namespace korin::kernels {
namespace {

// Few copies of large tables, or those of the usual values would not fit into the
// nearest cache.
constexpr std::int64_t CopiesOf(std::int64_t cells) {
  if (cells <= 4096) return CountTables::kCopies;
  return cells <= 65536 ? 2 : 1;
}
constexpr std::int64_t kCellsOfCacheLine = 16;
// Samples from which a cell for each 16-bit value pays.
constexpr std::int64_t kWorthValues = 1 << 18;

// Samples whose bins are found at once where no table takes them.
constexpr std::int64_t kStrip = 1024;

}  // namespace

template <typename T>
SampleCounter<T>::SampleCounter(const BinRule& rule, std::int64_t samples, std::int32_t* counts)
    : m_rule(rule), m_counts(counts) {
  if (kSmall && (sizeof(T) == 1 || samples >= kWorthValues)) {
    m_values = std::make_unique<Values>(samples);
    return;
  }
  // Tables of two threads do not share a cache line.
  m_cells = CeilDiv(std::int64_t{rule.bins} + 1, kCellsOfCacheLine) * kCellsOfCacheLine;
  const std::int64_t tableBytes = m_cells * static_cast<std::int64_t>(sizeof(std::uint32_t));
  if (tableBytes > kMostScratch) return;
  // Clearing and adding up a cell costs about as much as counting a sample.
  if (samples >= 2 * CopiesOf(m_cells) * m_cells) m_copies = CopiesOf(m_cells);
  m_workers =
      CountingThreads(samples, 2 * m_copies * m_cells, kMostScratch / (m_copies * tableBytes));
  m_tables = TakeHistogramTables(m_workers * m_copies * m_cells);
}

template <typename T>
SampleCounter<T>::~SampleCounter() {
  ScratchCache::Process().Give(m_tables);
}

template <typename T>
std::int64_t SampleCounter<T>::ScratchBytes() const {
  if (m_values) return m_values->ScratchBytes();
  const bool inPlace = m_cells * 4 > kMostScratch;
  return inPlace ? 0 : m_workers * m_copies * m_cells * 4;
}

template <typename T>
void SampleCounter<T>::Add(std::int64_t bin, std::uint32_t count) const {
  m_counts[bin] = static_cast<std::int32_t>(static_cast<std::uint32_t>(m_counts[bin]) + count);
}

template <typename T>
void SampleCounter<T>::CountBins(const T* row, std::int64_t width, std::int64_t worker) const {
  const auto& loops = RowLoopsOfThisProcessor<T>();
  if (m_tables != nullptr) {
    CountTables tables{};
    for (std::int64_t c = 0; c < CountTables::kCopies; ++c) {
      tables.copies[c] = m_tables + (worker * m_copies + c % m_copies) * m_cells;
    }
    return loops.countBins(row, width, m_rule, tables);
  }
  std::int32_t bins[kStrip];
  for (std::int64_t x = 0; x < width; x += kStrip) {
    const std::int64_t count = std::min(kStrip, width - x);
    loops.binsOf(row + x, count, m_rule, bins);
    for (std::int64_t i = 0; i < count; ++i) {
      if (bins[i] != m_rule.bins) Add(bins[i], 1);
    }
  }
}

template <typename T>
void SampleCounter<T>::Count(const std::vector<RowStretch>& stretches, std::int64_t width,
                             std::int64_t bytesPerRow) {
  if (m_values) return m_values->Count(stretches, width, bytesPerRow);
  const bool adjacent = width * static_cast<std::int64_t>(sizeof(T)) == bytesPerRow;
  std::atomic<std::size_t> next{0};
  ParallelFor(m_workers, [&](std::int64_t worker) {
    for (std::size_t i = next++; i < stretches.size(); i = next++) {
      const RowStretch& stretch = stretches[i];
      if (adjacent) {
        CountBins(reinterpret_cast<const T*>(stretch.rows), width * stretch.lines, worker);
        continue;
      }
      for (std::int64_t line = 0; line < stretch.lines; ++line) {
        CountBins(reinterpret_cast<const T*>(stretch.rows + line * bytesPerRow), width, worker);
      }
    }
  });
}

// Every value's count goes to the value's bin.
template <typename T>
void SampleCounter<T>::FinishValues() {
  std::vector<std::uint32_t> counted(static_cast<std::size_t>(Values::kValues));
  m_values->Finish(counted.data());
  T values[kStrip];
  std::int32_t bins[kStrip];
  for (std::int64_t first = 0; first < Values::kValues; first += kStrip) {
    const std::int64_t count = std::min(kStrip, Values::kValues - first);
    for (std::int64_t i = 0; i < count; ++i) {
      values[i] =
          static_cast<T>(static_cast<std::int64_t>(std::numeric_limits<T>::lowest()) + first + i);
    }
    RowLoopsOfThisProcessor<T>().binsOf(values, count, m_rule, bins);
    for (std::int64_t i = 0; i < count; ++i) {
      if (bins[i] != m_rule.bins) Add(bins[i], counted[static_cast<std::size_t>(first + i)]);
    }
  }
}

template <typename T>
void SampleCounter<T>::Finish() {
  if constexpr (kSmall) {
    if (m_values) return FinishValues();
  }
  if (m_tables == nullptr) return;
  // The tables of all threads, a part of the bins at a time.
  constexpr std::int64_t kPart = 1 << 13;
  const std::int64_t bins = m_rule.bins;
  ParallelFor((bins + kPart - 1) / kPart, [&](std::int64_t part) {
    for (std::int64_t t = 0; t < m_workers * m_copies; ++t) {
      for (std::int64_t bin = part * kPart; bin < std::min(bins, (part + 1) * kPart); ++bin) {
        Add(bin, m_tables[t * m_cells + bin]);
      }
    }
  });
}

#define KORIN_ELEMENT(name, T) template class SampleCounter<T>;
KORIN_FOR_EACH_ELEMENT(KORIN_ELEMENT)

}  // namespace korin::kernels
