#include "kernels/row_batch.h"

#include <cstring>
#include <string>

#include "korinimage/exceptions.h"

namespace korin {

RowBatch::RowBatch(const CVmImage& store, std::int64_t y, BlockIntent intent)
    : m_firstRow(y),
      m_bytesPerLine(store.GetBytesPerLine()),
      m_overwrites(intent == BlockIntent::Overwrite) {}

// The object is complete when the body begins: what it throws runs the destructor.
RowBatch::RowBatch(CVmImage& store, std::int64_t plane, std::int64_t y, std::int64_t rows,
                   BlockIntent intent, bool literalFlag, int shares)
    : RowBatch(store, y, intent) {
  if (plane < 0 || plane >= store.GetPlanes() || y < 0 || rows < 1 ||
      rows > store.GetHeight() - y || store.GetBlockCount() < 1) {
    throw CVmMemoryAllocationError("rows " + std::to_string(y) + " to " +
                                   std::to_string(y + rows - 1) + " of plane " +
                                   std::to_string(plane) + " are outside the image store of " +
                                   std::to_string(store.GetPlanes()) + " planes of " +
                                   std::to_string(store.GetHeight()) + " rows");
  }
  const auto manager = store.VmManager();
  if (!manager) throw CVmManagerHandleDeletedError();
  const std::int64_t unit = std::max<std::int64_t>(manager->GetBlockSize(), 1);
  const std::int64_t blockBytes = store.GetBytesPerLine() * store.GetLinesPerBlock();
  const std::int64_t perBlock = std::max<std::int64_t>(blockBytes / unit, 1);
  const std::int64_t blocks =
      std::max<std::int64_t>(manager->GetComfortableBlocks() / (perBlock * shares), 1);
  // Nothing may fail between a block and its row in the list.
  const auto most = static_cast<std::size_t>(std::min({blocks, rows, store.GetBlockCount()}));
  m_segments.reserve(most);
  m_guards.reserve(most);
  while (m_rowCount < rows && static_cast<std::int64_t>(m_segments.size()) < blocks) {
    CVmImage::LineRun run = store.GetLineRun(plane, y + m_rowCount);
    run.lines = std::min(run.lines, rows - m_rowCount);
    const bool wholeBlock = run.firstLine == 0 && run.lines == store.GetBlockLineCount(run.block);
    const BlockIntent blockIntent =
        intent == BlockIntent::Overwrite && !wholeBlock ? BlockIntent::Write : intent;
    BlockGuard guard = m_rowCount == 0 ? store.RequireBlock(run.block, blockIntent, literalFlag)
                                       : store.PinBlock(run.block, blockIntent, literalFlag);
    // Rows already held are worked on first; their blocks then make room.
    if (!guard) break;
    m_segments.push_back(
        {guard.Address() + run.firstLine * m_bytesPerLine, run.y, run.lines, wholeBlock});
    m_guards.push_back(std::move(guard));
    m_rowCount += run.lines;
  }
}

RowBatch::~RowBatch() {
  if (!m_overwrites || std::uncaught_exceptions() <= m_exceptions) return;
  for (const Segment& segment : m_segments) {
    if (!segment.wholeBlock) continue;
    std::memset(segment.address, 0, static_cast<std::size_t>(segment.lines * m_bytesPerLine));
  }
}

BYTE* RowBatch::Row(std::int64_t y) const {
  const auto after =
      std::upper_bound(m_segments.begin(), m_segments.end(), y,
                       [](std::int64_t row, const Segment& segment) { return row < segment.y; });
  const Segment& segment = *(after - 1);
  return segment.address + (y - segment.y) * m_bytesPerLine;
}

}  // namespace korin
