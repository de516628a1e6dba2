#include "kernels/value_counter.h"

#include <HalideRuntime.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <type_traits>

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

// Adds 1 to the cell of each 16-bit word of `bytes` bytes, a multiple of 8.
void CountWords(const BYTE* from, std::int64_t bytes, std::uint32_t* cells) {
  constexpr std::int64_t kStep = sizeof(std::uint64_t);
  std::uint64_t last = 0;
  for (std::int64_t at = 0; at < bytes;) {
    const BYTE* const words = from + at;
    const auto all = Read<std::uint64_t>(words);
    std::uint32_t times = 1;
    at += kStep;
    if (all == last) {
      // A flat area is added at once.
      for (; at < bytes && Read<std::uint64_t>(from + at) == last; at += kStep) ++times;
    }
    last = all;
    for (std::int64_t i = 0; i < kStep; i += 2) cells[Read<std::uint16_t>(words + i)] += times;
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
  m_workers = std::clamp<std::int64_t>(samples / (kSamplesPerCell * m_cells), 1,
                                       std::min<std::int64_t>(GetThreadCount(), kMostWorkers));
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
    done = bytes / 8 * 8;
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

namespace {

template <typename T>
int CountPlane(const halide_buffer_t& input, std::uint32_t* counts) {
  const halide_dimension_t& x = input.dim[0];
  const halide_dimension_t& y = input.dim[1];
  const std::int64_t bytesPerRow = std::int64_t{y.stride} * static_cast<std::int64_t>(sizeof(T));
  try {
    ValueCounter<T> counter(std::int64_t{x.extent} * y.extent);
    std::vector<RowStretch> stretches;
    const RowPieces pieces(y.extent, bytesPerRow);
    for (std::int64_t row = 0; row < y.extent; row += pieces.rowsPerPiece) {
      stretches.push_back({input.host + row * bytesPerRow, row,
                           std::min<std::int64_t>(pieces.rowsPerPiece, y.extent - row)});
    }
    counter.Count(stretches, x.extent, bytesPerRow);
    counter.Finish(counts);
    return 0;
  } catch (const std::bad_alloc&) {
    return halide_error_out_of_memory(nullptr);
  }
}

}  // namespace
}  // namespace korin::kernels

// The pipelines' way to the counter: a stage that writes how often each value of the
// whole input occurs. Buffers without memory ask which part of them is going to be used.
extern "C" int korin_count_values(halide_buffer_t* input, std::int32_t x, std::int32_t width,
                                  std::int32_t y, std::int32_t height, halide_buffer_t* counts) {
  using namespace korin::kernels;
  if (input->is_bounds_query()) {
    input->dim[0].min = x;
    input->dim[0].extent = width;
    input->dim[1].min = y;
    input->dim[1].extent = height;
    return 0;
  }
  if (counts->is_bounds_query() || counts->dim[0].extent <= 0) return 0;
  auto* const cells = reinterpret_cast<std::uint32_t*>(counts->host);
  if (input->type.bits == 8) return CountPlane<std::uint8_t>(*input, cells);
  return input->type.code == halide_type_int ? CountPlane<std::int16_t>(*input, cells)
                                             : CountPlane<std::uint16_t>(*input, cells);
}
