#include "kernels/paged_rows.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <optional>
#include <vector>

#include "kernels/parallel.h"
#include "kernels/scratch_cache.h"
#include "korinimage/exceptions.h"
#include "platform/checked_math.h"

namespace korin {
namespace {

// Of one thread: fits its share of the caches together with what a kernel needs.
constexpr std::int64_t kBufferBytes = 256 << 10;
// Pieces in one loop on the threads; its end is a wait for all of them.
constexpr std::size_t kMostPieces = 64;

struct Piece {
  const BYTE* rows = nullptr;  // null: in the swap file
  SwapPlace place;
  std::int64_t block = 0;
  std::int64_t offset = 0;  // bytes, in the block
  std::int64_t y = 0;
  std::int64_t lines = 0;
  bool valid = true;
};

class Buffer {
 public:
  explicit Buffer(std::int64_t bytes)
      : m_bytes(static_cast<BYTE*>(ScratchCache::Process().Take(static_cast<std::size_t>(bytes)))) {
  }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;
  ~Buffer() { ScratchCache::Process().Give(m_bytes); }
  BYTE* Bytes() const { return m_bytes; }

 private:
  BYTE* m_bytes;
};

class PagedRows {
 public:
  PagedRows(CVmImage& store, std::int64_t plane, std::int64_t height, const ReadStretch& body)
      : m_store(store),
        m_manager(store.VmManager()),
        m_plane(plane),
        m_height(height),
        m_bytesPerLine(store.GetBytesPerLine()),
        m_linesPerPiece(kBufferBytes / std::max<std::int64_t>(m_bytesPerLine, 1)),
        m_body(body) {
    if (!m_manager) throw CVmManagerHandleDeletedError();
    const std::int64_t unit = std::max<std::int64_t>(m_manager->GetBlockSize(), 1);
    const std::int64_t perBlock = CeilDiv(m_bytesPerLine * store.GetLinesPerBlock(), unit);
    m_mostHeld = m_manager->GetComfortableBlocks() / std::max<std::int64_t>(perBlock, 1);
  }

  void Run() {
    for (std::int64_t y = 0; y < m_height;) {
      y = Collect(y);
      ParallelFor(static_cast<std::int64_t>(m_pieces.size()),
                  [&](std::int64_t i) { Work(m_pieces[static_cast<std::size_t>(i)]); });
      m_held.clear();
      for (const Piece& piece : m_pieces) Mend(piece);
      m_pieces.clear();
    }
  }

 private:
  // Gathers rows from `y` on for one loop and returns the row after them.
  std::int64_t Collect(std::int64_t y) {
    while (y < m_height && m_pieces.size() < kMostPieces) {
      CVmImage::LineRun run = m_store.GetLineRun(m_plane, y);
      run.lines = std::min(run.lines, m_height - y);
      const auto place = m_linesPerPiece < 1
                             ? std::nullopt
                             : m_manager->FindInSwap(m_store.GetVmHandle(), run.block);
      BlockGuard guard;
      if (!place) {
        const bool first = m_pieces.empty();
        if (!first && static_cast<std::int64_t>(m_held.size()) >= m_mostHeld) break;
        BYTE* const address = m_manager->MapResidentBlock(m_store.GetVmHandle(), run.block);
        if (address != nullptr) {
          guard = BlockGuard(m_manager, m_store.GetVmHandle(), run.block, address);
        } else if (first) {
          // Brought in, and worked on while it is in the processor's cache.
          guard = m_store.RequireBlock(run.block, BlockIntent::Read, true);
          Cut(run, guard.Address(), {});
          m_held.push_back(std::move(guard));
          return y + run.lines;
        } else {
          break;
        }
      }
      Cut(run, guard.Address(), place.value_or(SwapPlace{}));
      if (guard) m_held.push_back(std::move(guard));
      y += run.lines;
    }
    return y;
  }

  void Cut(const CVmImage::LineRun& run, const BYTE* block, const SwapPlace& place) {
    const std::int64_t most = std::max<std::int64_t>(m_linesPerPiece, 1);
    for (std::int64_t line = 0; line < run.lines; line += most) {
      const std::int64_t offset = (run.firstLine + line) * m_bytesPerLine;
      m_pieces.push_back({block == nullptr ? nullptr : block + offset, place, run.block, offset,
                          run.y + line, std::min(most, run.lines - line)});
    }
  }

  void Work(Piece& piece) const {
    if (piece.rows != nullptr) {
      m_body(piece.rows, piece.y, piece.lines);
      return;
    }
    const std::int64_t bytes = piece.lines * m_bytesPerLine;
    const Buffer buffer(bytes);
    piece.valid = buffer.Bytes() != nullptr &&
                  m_manager->ReadFromSwap(piece.place, piece.offset, buffer.Bytes(), bytes);
    if (piece.valid) m_body(buffer.Bytes(), piece.y, piece.lines);
  }

  // What was not read, or not in time, is taken as any other loop takes it.
  void Mend(const Piece& piece) {
    if (piece.rows != nullptr || (piece.valid && m_manager->IsCurrent(piece.place))) return;
    const BlockGuard guard = m_store.RequireBlock(piece.block, BlockIntent::Read, true);
    m_body(guard.Address() + piece.offset, piece.y, piece.lines);
  }

  CVmImage& m_store;
  std::shared_ptr<CVmManager> m_manager;
  std::int64_t m_plane;
  std::int64_t m_height;
  std::int64_t m_bytesPerLine;
  std::int64_t m_linesPerPiece;  // 0: a line does not fit a buffer
  const ReadStretch& m_body;
  std::int64_t m_mostHeld = 0;
  std::vector<BlockGuard> m_held;
  std::vector<Piece> m_pieces;
};

}  // namespace

void ForEachPagedStretch(CVmImage& store, std::int64_t plane, std::int64_t height,
                         const ReadStretch& body) {
  PagedRows(store, plane, height, body).Run();
}

}  // namespace korin
