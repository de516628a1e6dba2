#pragma once

#include <cstdint>
#include <memory>
#include <type_traits>
#include <vector>

#include "kernels/row_batch.h"
#include "kernels/row_loops.h"
#include "kernels/value_counter.h"

namespace korin::kernels {

// Counts samples in bins, batch of rows after batch of rows, on the kernels'
// threads. Each thread counts in tables of its own; with 8- and 16-bit samples
// these have a cell for every stored value, and each value's count goes through the
// rule once, at the end. However many bins or samples there are, the tables take
// 16 MiB at most.
template <typename T>
class SampleCounter {
 public:
  static constexpr std::int64_t kMostScratch = std::int64_t{16} << 20;

  // `samples`: about how many will come. `counts` has rule.bins cells, is added to
  // (modulo 2^32) and stays where it is until Finish.
  // Throws korin::CKorinImageBadAllocException without memory for the tables.
  SampleCounter(const BinRule& rule, std::int64_t samples, std::int32_t* counts);
  ~SampleCounter();
  SampleCounter(const SampleCounter&) = delete;
  SampleCounter& operator=(const SampleCounter&) = delete;

  // `width` samples of each row; rows are `bytesPerRow` apart.
  void Count(const std::vector<RowStretch>& stretches, std::int64_t width,
             std::int64_t bytesPerRow);
  void Finish();

  std::int64_t ScratchBytes() const;

 private:
  static constexpr bool kSmall = sizeof(T) <= 2;
  using Values = ValueCounter<std::conditional_t<kSmall, T, std::uint8_t>>;

  void CountBins(const T* row, std::int64_t width, std::int64_t worker) const;
  void Add(std::int64_t bin, std::uint32_t count) const;
  void FinishValues();

  BinRule m_rule;
  std::int32_t* m_counts;
  std::unique_ptr<Values> m_values;  // null: counted by bins
  std::int64_t m_cells = 0;          // of one table, the one for "nowhere" included
  std::int64_t m_copies = 1;
  std::int64_t m_workers = 1;
  std::uint32_t* m_tables = nullptr;  // workers x copies x cells; null: in m_counts
};

}  // namespace korin::kernels
