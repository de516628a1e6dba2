#include "kernels/sample_counter.h"

#include <algorithm>
#include <atomic>
#include <limits>

#include "kernels/histogram_tables.h"
#include "kernels/scratch_cache.h"

namespace korin::kernels {
namespace {

// Neighbouring samples are often alike: they take turns among copies of a table, so
// that an increment need not wait for the one before.
// Few copies of large tables, or those of the usual values would not fit into the
// nearest cache.
constexpr std::int64_t CopiesOf(std::int64_t cells) {
  if (cells <= 4096) return 4;
  return cells <= 65536 ? 2 : 1;
}
// Samples from which a cell for each 16-bit value pays.
constexpr std::int64_t kWorthValues = 1 << 18;

// Adds 1 to the cell of each of `count` things: cellOf(x) in copy x mod copies.
template <std::int64_t copies, typename CellOf>
void Increment(std::int64_t count, std::int64_t cells, std::uint32_t* tables, CellOf cellOf) {
  std::int64_t x = 0;
  for (; x + copies <= count; x += copies) {
    for (std::int64_t c = 0; c < copies; ++c) ++tables[c * cells + cellOf(x + c)];
  }
  for (; x < count; ++x) ++tables[cellOf(x)];
}

template <typename CellOf>
void Increment(std::int64_t copies, std::int64_t count, std::int64_t cells, std::uint32_t* tables,
               CellOf cellOf) {
  switch (copies) {
    case 4:
      return Increment<4>(count, cells, tables, cellOf);
    case 2:
      return Increment<2>(count, cells, tables, cellOf);
    default:
      return Increment<1>(count, cells, tables, cellOf);
  }
}

// Samples whose bins are found in vectors before they are counted one by one.
constexpr std::int64_t kStrip = 1024;

}  // namespace

template <typename T>
SampleCounter<T>::SampleCounter(const PhysicalBins& rule, std::int64_t samples,
                                std::int32_t* counts)
    : m_rule(rule), m_counts(counts) {
  if (kSmall && (sizeof(T) == 1 || samples >= kWorthValues)) {
    m_values = std::make_unique<Values>(samples);
    return;
  }
  m_cells = std::int64_t{rule.bins} + 1;
  const std::int64_t tableBytes = m_cells * static_cast<std::int64_t>(sizeof(std::uint32_t));
  if (tableBytes > kMostScratch) return;
  // Clearing and adding up a cell costs about as much as counting a sample.
  if (samples >= 2 * CopiesOf(m_cells) * m_cells) m_copies = CopiesOf(m_cells);
  m_workers = std::clamp<std::int64_t>(
      std::min({samples / (2 * m_copies * m_cells), kMostScratch / (m_copies * tableBytes),
                std::int64_t{GetThreadCount()}}),
      1, GetThreadCount());
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
void SampleCounter<T>::CountBins(const T* row, std::int64_t width, std::uint32_t* tables) const {
  std::int32_t bins[kStrip];
  const auto& loops = RowLoopsOfThisProcessor<T>();
  for (std::int64_t x = 0; x < width; x += kStrip) {
    const std::int64_t count = std::min(kStrip, width - x);
    loops.binsOf(row + x, count, m_rule, bins);
    if (m_tables != nullptr) {
      Increment(m_copies, count, m_cells, tables, [&bins](std::int64_t i) { return bins[i]; });
      continue;
    }
    for (std::int64_t i = 0; i < count; ++i) {
      if (bins[i] != m_rule.bins) Add(bins[i], 1);
    }
  }
}

template <typename T>
void SampleCounter<T>::Count(const std::vector<RowStretch>& stretches, std::int64_t width,
                             std::int64_t bytesPerRow) {
  if (m_values) return m_values->Count(stretches, width, bytesPerRow);
  std::atomic<std::size_t> next{0};
  ParallelFor(m_workers, [&](std::int64_t worker) {
    std::uint32_t* const tables =
        m_tables == nullptr ? nullptr : m_tables + worker * m_copies * m_cells;
    for (std::size_t i = next++; i < stretches.size(); i = next++) {
      const RowStretch& stretch = stretches[i];
      for (std::int64_t line = 0; line < stretch.lines; ++line) {
        CountBins(reinterpret_cast<const T*>(stretch.rows + line * bytesPerRow), width, tables);
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
