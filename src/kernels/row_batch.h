#pragma once

#include <algorithm>
#include <cstdint>
#include <exception>
#include <vector>

#include "kernels/parallel.h"
#include "korinimage/vm_image.h"

namespace korin {

// Rows of one plane whose blocks are held in memory: the unit in which row loops
// work. The calling thread takes a batch (blocks as many as the budget comfortably
// allows), runs over its rows on any number of threads, and lets it go; so no
// worker ever fetches a block, fails or waits.
class RowBatch {
 public:
  // Adjacent rows in one block.
  struct Segment {
    BYTE* address = nullptr;  // first byte of row `y`
    std::int64_t y = 0;       // within the plane
    std::int64_t lines = 0;
    bool wholeBlock = false;  // no other line lies in the block
  };

  // Pins the blocks of rows y, y + 1, ... of `plane`, at most `rows` of them and at
  // least one. With intent Overwrite the caller promises to set every byte of every
  // row taken, so that blocks holding nothing else need not be read; these hold zeros
  // when the batch goes because of an exception. `literalFlag` is what the manager's
  // GetBlockAddress is told. `shares`: how many batches the caller holds at once; each
  // takes its part of the budget.
  // Throws korin::CVmMemoryAllocationError when the first block cannot be brought
  // in or the rows are outside the store, korin::CVmManagerHandleDeletedError.
  RowBatch(CVmImage& store, std::int64_t plane, std::int64_t y, std::int64_t rows,
           BlockIntent intent, bool literalFlag, int shares = 1);
  RowBatch(const RowBatch&) = delete;
  RowBatch& operator=(const RowBatch&) = delete;
  ~RowBatch();

  std::int64_t FirstRow() const { return m_firstRow; }
  std::int64_t RowCount() const { return m_rowCount; }
  // First byte of row y; FirstRow() <= y < FirstRow() + RowCount().
  BYTE* Row(std::int64_t y) const;
  const std::vector<Segment>& Segments() const { return m_segments; }

 private:
  RowBatch(const CVmImage& store, std::int64_t y, BlockIntent intent);

  std::int64_t m_firstRow;
  std::int64_t m_rowCount = 0;
  std::int64_t m_bytesPerLine;
  bool m_overwrites;
  int m_exceptions = std::uncaught_exceptions();
  std::vector<Segment> m_segments;
  std::vector<BlockGuard> m_guards;  // one per segment
};

// How a loop over rows is cut for the threads: pieces of about 128 KiB, at least
// one row each. The cut depends on the shape only, never on the thread count.
struct RowPieces {
  RowPieces(std::int64_t rows, std::int64_t bytesPerRow)
      : rowsPerPiece(std::clamp<std::int64_t>(131072 / std::max<std::int64_t>(bytesPerRow, 1), 1,
                                              std::max<std::int64_t>(rows, 1))),
        count((rows + rowsPerPiece - 1) / rowsPerPiece) {}

  std::int64_t rowsPerPiece;
  std::int64_t count;
};

// Runs `body(piece, firstRow, endRow)` over the pieces of rows [y, y + rows) on the
// kernels' threads.
template <typename Body>
void ParallelRows(std::int64_t y, std::int64_t rows, std::int64_t bytesPerRow, Body&& body) {
  const RowPieces pieces(rows, bytesPerRow);
  ParallelFor(pieces.count, [&](std::int64_t piece) {
    const std::int64_t first = y + piece * pieces.rowsPerPiece;
    body(piece, first, std::min(first + pieces.rowsPerPiece, y + rows));
  });
}

// Rows of a batch that lie side by side in memory.
struct RowStretch {
  BYTE* rows = nullptr;  // first byte of row `y`
  std::int64_t y = 0;
  std::int64_t lines = 0;
};

// A batch as stretches for the threads. Their cut depends on the shape only.
inline std::vector<RowStretch> CutIntoStretches(const RowBatch& batch, std::int64_t bytesPerRow) {
  std::vector<RowStretch> stretches;
  for (const RowBatch::Segment& segment : batch.Segments()) {
    const RowPieces pieces(segment.lines, bytesPerRow);
    for (std::int64_t first = 0; first < segment.lines; first += pieces.rowsPerPiece) {
      stretches.push_back({segment.address + first * bytesPerRow, segment.y + first,
                           std::min(pieces.rowsPerPiece, segment.lines - first)});
    }
  }
  return stretches;
}

// Runs `body(firstByte, y, lines)` over the stretches of a batch on the kernels'
// threads, which share the stretches of all its blocks.
template <typename Body>
void ParallelStretches(const RowBatch& batch, std::int64_t bytesPerRow, Body&& body) {
  const std::vector<RowStretch> stretches = CutIntoStretches(batch, bytesPerRow);
  ParallelFor(static_cast<std::int64_t>(stretches.size()), [&](std::int64_t i) {
    const RowStretch& stretch = stretches[static_cast<std::size_t>(i)];
    body(stretch.rows, stretch.y, stretch.lines);
  });
}

}  // namespace korin
