#include "korinimage/scoped_progress.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/checked_math.h"

namespace korin {

namespace {

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();

// done x 100 / total. Totals too large for the product lose low bits that no whole
// percentage can show.
int Percent(std::int64_t done, std::int64_t total) {
  while (done > kMax / 100 || total > kMax / 100) {
    done /= 2;
    total /= 2;
  }
  const std::int64_t percent = done * 100 / std::max<std::int64_t>(total, 1);
  return static_cast<int>(std::min<std::int64_t>(percent, std::numeric_limits<int>::max()));
}

}  // namespace

ScopedProgress::ScopedProgress(std::shared_ptr<Progress> progress, std::int64_t total)
    : m_progress(std::move(progress)), m_total(total) {
  if (m_progress) m_progress->initialize();
}

ScopedProgress::~ScopedProgress() {
  if (!m_progress) return;
  try {
    m_progress->finalize();
  } catch (...) {
    // The operation's own outcome, or the exception already passing, counts.
  }
}

void ScopedProgress::Step(std::int64_t i) {
  if (!m_progress || m_total <= 0 || i < 0) return;
  const int percent = Percent(i == kMax ? i : i + 1, m_total);
  if (percent == m_lastPercent) return;
  m_progress->update(percent);
  m_lastPercent = percent;
}

ImageRowsScopedProgress::ImageRowsScopedProgress(std::shared_ptr<Progress> progress,
                                                 std::int64_t planes, std::int64_t rows)
    : ScopedProgress(std::move(progress), CheckedMul(planes, rows).value_or(0)),
      m_planes(planes),
      m_rows(rows) {}

ImageRowsScopedProgress::~ImageRowsScopedProgress() = default;

void ImageRowsScopedProgress::Row(std::int64_t plane, std::int64_t y) {
  if (plane < 0 || plane >= m_planes) return;
  const auto before = CheckedMul(plane, m_rows);
  if (before && y >= 0 && y < m_rows) Step(*before + y);
}

}  // namespace korin
