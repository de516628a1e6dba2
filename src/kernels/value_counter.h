#pragma once

#include <cstdint>
#include <vector>

#include "kernels/row_batch.h"

namespace korin::kernels {

// Counts how often each value of an 8- or 16-bit type occurs, batch of rows after
// batch of rows, on the kernels' threads. Each thread counts in a table of its own;
// all of them together stay below 16 MiB.
template <typename T>
class ValueCounter {
 public:
  static constexpr std::int64_t kValues = std::int64_t{1} << (8 * sizeof(T));

  // `samples`: about how many will come.
  // Throws korin::CKorinImageBadAllocException without memory for the tables.
  explicit ValueCounter(std::int64_t samples);
  ~ValueCounter();
  ValueCounter(const ValueCounter&) = delete;
  ValueCounter& operator=(const ValueCounter&) = delete;

  // `width` samples of each row; rows are `bytesPerRow` apart.
  void Count(const std::vector<RowStretch>& stretches, std::int64_t width,
             std::int64_t bytesPerRow);
  // Writes kValues counts, from the lowest value of T on, modulo 2^32. Called once, last.
  void Finish(std::uint32_t* counts);

  std::int64_t ScratchBytes() const;

 private:
  void CountRow(const BYTE* row, std::int64_t width, std::uint32_t* table) const;

  bool m_inPairs = false;      // the cells are two neighbouring bytes
  std::int64_t m_cells = 0;    // of one table
  std::int64_t m_workers = 1;  // threads that count at once
  std::uint32_t* m_tables = nullptr;
};

}  // namespace korin::kernels
