#include "kernels/value_counter.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <type_traits>

#include "kernels/fetch_ahead.h"
#include "kernels/histogram_tables.h"
#include "kernels/parallel.h"
#include "kernels/scratch_cache.h"

namespace korin::kernels {
namespace {

constexpr std::int64_t kWords = 1 << 16;
// Bytes of a large image are counted two at a time, in half the steps: one cell for
// each pair, then one for each value of a byte left over at the end of a row.
constexpr std::int64_t kPairCells = kWords + 256;
constexpr std::int64_t kWorthPairs = 1 << 19;
// Otherwise neighbouring bytes, which are often alike, take turns among copies of the
// table: an increment waits for the one before when both meet in a cell.
constexpr std::int64_t kByteCopies = 8;
// Samples per thread that pay for clearing and adding up its table.
constexpr std::int64_t kSamplesPerCell = 4;
constexpr std::int64_t kMostWorkers = 60;

template <typename Word>
Word Read(const BYTE* from) {
  Word word;
  std::memcpy(&word, from, sizeof word);
  return word;
}

// Adds 1 to the cell of each 16-bit word of `bytes` bytes, a multiple of 64.
void CountWords(const BYTE* from, std::int64_t bytes, std::uint32_t* cells) {
  constexpr std::uint64_t kInEveryWord = 0x0001000100010001;
  for (const BYTE* const end = from + bytes; from < end; from += kCacheLine) {
    FetchAhead(from);
    const auto first = Read<std::uint64_t>(from);
    if (first == (first & 0xFFFF) * kInEveryWord) {
      // A flat area is added at once: one increment would wait for the other.
      std::uint64_t differ = 0;
      for (std::int64_t i = 0; i < kCacheLine; i += 8) {
        differ |= Read<std::uint64_t>(from + i) ^ first;
      }
      if (differ == 0) {
        cells[first & 0xFFFF] += kCacheLine / 2;
        continue;
      }
    }
    // In pairs, as many as the compiler lays out without a loop.
    for (std::int64_t i = 0; i < kCacheLine; i += 4) {
      ++cells[Read<std::uint16_t>(from + i)];
      ++cells[Read<std::uint16_t>(from + i + 2)];
    }
  }
}

void AddUp(std::uint32_t* to, const std::uint32_t* from, std::int64_t cells) {
  for (std::int64_t i = 0; i < cells; ++i) to[i] += from[i];
}

}  // namespace

template <typename T>
ValueCounter<T>::ValueCounter(std::int64_t samples) {
  m_inPairs = sizeof(T) == 1 && samples >= kWorthPairs;
  m_cells = m_inPairs ? kPairCells : sizeof(T) == 1 ? kByteCopies * kValues : kValues;
  m_workers = CountingThreads(samples, kSamplesPerCell * m_cells, kMostWorkers);
  m_tables = TakeHistogramTables(m_workers * m_cells);
}

template <typename T>
ValueCounter<T>::~ValueCounter() {
  ScratchCache::Process().Give(m_tables);
}

template <typename T>
std::int64_t ValueCounter<T>::ScratchBytes() const {
  return m_workers * m_cells * static_cast<std::int64_t>(sizeof(std::uint32_t));
}

template <typename T>
void ValueCounter<T>::CountRow(const BYTE* row, std::int64_t width, std::uint32_t* table) const {
  const std::int64_t bytes = width * static_cast<std::int64_t>(sizeof(T));
  std::int64_t done = 0;
  if (sizeof(T) == 2 || m_inPairs) {
    done = bytes / kCacheLine * kCacheLine;
    CountWords(row, done, table);
  }
  if constexpr (sizeof(T) == 2) {
    for (; done < bytes; done += 2) ++table[Read<std::uint16_t>(row + done)];
  } else if (m_inPairs) {
    for (; done < bytes; ++done) ++table[kWords + row[done]];
  } else {
    for (; done + kByteCopies <= bytes; done += kByteCopies) {
      for (std::int64_t i = 0; i < kByteCopies; ++i) ++table[i * kValues + row[done + i]];
    }
    for (; done < bytes; ++done) ++table[row[done]];
  }
}

template <typename T>
void ValueCounter<T>::Count(const std::vector<RowStretch>& stretches, std::int64_t width,
                            std::int64_t bytesPerRow) {
  const bool adjacent = width * static_cast<std::int64_t>(sizeof(T)) == bytesPerRow;
  std::atomic<std::size_t> next{0};
  ParallelFor(m_workers, [&](std::int64_t worker) {
    std::uint32_t* const table = m_tables + worker * m_cells;
    for (std::size_t i = next++; i < stretches.size(); i = next++) {
      const RowStretch& stretch = stretches[i];
      if (adjacent) {
        CountRow(stretch.rows, width * stretch.lines, table);
        continue;
      }
      for (std::int64_t line = 0; line < stretch.lines; ++line) {
        CountRow(stretch.rows + line * bytesPerRow, width, table);
      }
    }
  });
}

template <typename T>
void ValueCounter<T>::Finish(std::uint32_t* counts) {
  constexpr std::int64_t kPart = 1 << 13;
  // All tables into the first, a part of the cells at a time.
  if (m_workers > 1) {
    ParallelFor((m_cells + kPart - 1) / kPart, [&](std::int64_t part) {
      const std::int64_t first = part * kPart;
      for (std::int64_t worker = 1; worker < m_workers; ++worker) {
        AddUp(m_tables + first, m_tables + worker * m_cells + first,
              std::min(kPart, m_cells - first));
      }
    });
  }
  if constexpr (sizeof(T) == 2) {
    // By their bits; the negative values come first.
    constexpr std::int64_t kLowest = std::is_signed_v<T> ? kValues / 2 : 0;
    std::copy_n(m_tables + kLowest, kValues - kLowest, counts);
    std::copy_n(m_tables, kLowest, counts + kValues - kLowest);
  } else if (m_inPairs) {
    std::copy_n(m_tables + kWords, kValues, counts);
    for (std::int64_t high = 0; high < kValues; ++high) {
      const std::uint32_t* const row = m_tables + high * kValues;
      AddUp(counts, row, kValues);
      for (std::int64_t low = 0; low < kValues; ++low) counts[high] += row[low];
    }
  } else {
    std::copy_n(m_tables, kValues, counts);
    for (std::int64_t copy = 1; copy < kByteCopies; ++copy) {
      AddUp(counts, m_tables + copy * kValues, kValues);
    }
  }
}

template class ValueCounter<std::uint8_t>;
template class ValueCounter<std::int16_t>;
template class ValueCounter<std::uint16_t>;

}  // namespace korin::kernels
