// Bit-depth conversion: which mode, from which range, and what the result's
// scaling and levels become. The pixels go through kernels/store_conversion.h.
#include <algorithm>
#include <cmath>
#include <limits>

#include "image/image_pixels.h"
#include "image/kernel_statistics.h"
#include "kernels/block_driver.h"
#include "kernels/store_conversion.h"
#include "korinimage/exceptions.h"
#include "korinimage/image.h"
#include "korinimage/progress_win.h"

namespace {

using korin::ElementKind;
using korin::PixelView;
using korin::RowConversion;

// Physical extremes of all planes, and the average of the first. They are taken of
// the stored values and scaled once under every allocation policy, so that a
// conversion does not depend on the policy.
struct PhysicalFigures {
  double minimum = 0.0;
  double maximum = 0.0;
  double firstAverage = 0.0;
};

PhysicalFigures FiguresOf(const PixelView& view, bool withAverage) {
  const auto physical = [&view](double stored) { return stored * view.bscale + view.bzero; };
  PhysicalFigures figures;
  bool found = false;
  for (std::int64_t plane = 0; plane < view.planes; ++plane) {
    double min = 0.0;
    double max = 0.0;
    if (withAverage && plane == 0) {
      double average = 0.0;
      std::tie(min, max, average) = korin::kernel_path::MinMaxAverage(view, plane);
      figures.firstAverage = physical(average);
    } else {
      std::tie(min, max) = korin::kernel_path::MinMax(view, plane);
    }
    // A plane of NaN only has no extremes.
    if (max < min) continue;
    const auto [low, high] = std::minmax({physical(min), physical(max)});
    figures.minimum = found ? std::min(figures.minimum, low) : low;
    figures.maximum = found ? std::max(figures.maximum, high) : high;
    found = true;
  }
  return figures;
}

// The conversion of `source` by `conversion` in a new image, with the attributes of
// the source; null when a block could not be converted. Throws std::bad_alloc when
// memory is refused.
std::unique_ptr<CImage> ConvertedClone(const CImage& source, CImage::DataType type, bool perPlane,
                                       const CImage::ProgressPtr& progress,
                                       const RowConversion& conversion) {
  if (!conversion) return nullptr;
  auto clone = source.CloneWithoutImage(type, progress);
  if (!clone) throw korin::CVmMemoryAllocationError();
  auto& from = const_cast<CVmImage&>(*source.Store());
  CVmImage& to = *clone->Store();
  const bool byBlocks = source.GetAllocationPolicy() != CVmManager::AllocationPolicy::Blocks &&
                        korin::HaveEqualLayout(to, from);
  const bool converted = byBlocks ? korin::ConvertBlocks(to, from, progress, perPlane, conversion)
                                  : korin::ConvertRows(to, from, progress, conversion);
  if (!converted) clone.reset();
  return clone;
}

double LevelSpan(const std::vector<double>& lows, const std::vector<double>& highs,
                 std::size_t lowCount, std::size_t highCount) {
  const auto stopAtNaN = [](double value) { return std::isnan(value); };
  const auto lowEnd = lows.begin() + static_cast<std::ptrdiff_t>(lowCount);
  const auto highEnd = highs.begin() + static_cast<std::ptrdiff_t>(highCount);
  if (std::any_of(lows.begin(), lowEnd, stopAtNaN) ||
      std::any_of(highs.begin(), highEnd, stopAtNaN)) {
    return std::numeric_limits<double>::quiet_NaN();
  }
  return *std::max_element(highs.begin(), highEnd) - *std::min_element(lows.begin(), lowEnd);
}

}  // namespace

bool CImage::ChangeBits(const CImage* source, DataType type, bool isSigned, ChangeBitsLevel level,
                        const ProgressPtr& progress) {
  // The present type of this image decides, also when there is a source.
  const bool signMatters = type == DataTypeInt16 || type == DataTypeInt32;
  if (m_BitsPixel == type && (m_signed == isSigned || !signMatters)) {
    m_signed = isSigned;
    return true;
  }
  if (korin::BitsOf(type) == 0) return false;
  if (source == this) source = nullptr;
  try {
    if (type == DataTypeFloat || type == DataTypeDouble) {
      const bool converted = ChangeBitsToReal(source, type, progress);
      m_signed = isSigned;
      return converted;
    }
    return ChangeBitsToInt(source, type, isSigned, level, progress);
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool CImage::ChangeBits(const CImage* source, DataType type, bool isSigned, ChangeBitsLevel level,
                        HWND window, const wchar_t* caption) {
  return ChangeBits(source, type, isSigned, level, korin::MakeWindowProgress(window, caption));
}

bool CImage::ChangeBits(DataType type, bool isSigned, ChangeBitsLevel level,
                        const ProgressPtr& progress) {
  return ChangeBits(nullptr, type, isSigned, level, progress);
}

bool CImage::ChangeBits(DataType type, bool isSigned, ChangeBitsLevel level, HWND window,
                        const wchar_t* caption) {
  return ChangeBits(nullptr, type, isSigned, level, korin::MakeWindowProgress(window, caption));
}

bool CImage::IsBitsChangeable(DataType type, bool isSigned) const {
  return IsBitsChangeableRaw(type, m_levelMin, m_levelMax, isSigned);
}

bool CImage::IsBitsChangeableRaw(DataType type, const std::vector<double>& levelMin,
                                 const std::vector<double>& levelMax, bool) const {
  if (type == DataTypeFloat || type == DataTypeDouble) return true;
  const auto planes = static_cast<std::size_t>(std::max(GetPlanes(), 0));
  const std::size_t lows = std::min(levelMin.size(), planes);
  const std::size_t highs = std::min(levelMax.size(), planes);
  if (lows == 0 || highs == 0) return true;
  // Inclusive, and against 2^bits rather than the highest code: a span of exactly
  // 256 counts as fitting into 8 bits.
  return LevelSpan(levelMin, levelMax, lows, highs) <= std::exp2(korin::BitsOf(type));
}

bool CImage::ChangeBitsToReal(const CImage* source, DataType type, const ProgressPtr& progress) {
  const CImage& from = source != nullptr ? *source : *this;
  if (!from.VmManager()) return false;
  const auto kind = korin::ElementKindOf(from);
  if (!kind) return false;
  (void)korin::RequirePixels(from, *kind);
  auto converted =
      ConvertedClone(from, type, false, progress,
                     korin::StaticCastConversion(*kind, *korin::ElementKindOf(type, false)));
  if (!converted) return false;
  TakeConversion(std::move(*converted), 1);
  return true;
}

bool CImage::ChangeBitsToInt(const CImage* source, DataType type, bool isSigned,
                             ChangeBitsLevel level, const ProgressPtr& progress) {
  const CImage& from = source != nullptr ? *source : *this;
  if (!from.VmManager()) return false;
  switch (level) {
    case ChangeBitsLevel::Raw:
      ChangeBitsToIntRaw(source, type, isSigned, progress);
      break;
    case ChangeBitsLevel::Cooked:
      ChangeBitsToIntCooked(source, type, isSigned, progress);
      break;
    case ChangeBitsLevel::MinMax:
      ChangeBitsToIntMinMax(source, type, isSigned, progress);
      break;
    case ChangeBitsLevel::Automatic:
    default:
      if (from.IsBitsChangeable(type, isSigned)) {
        ChangeBitsToIntRaw(source, type, isSigned, progress);
      } else {
        ChangeBitsToIntCooked(source, type, isSigned, progress);
      }
  }
  return true;
}

void CImage::ChangeBitsToIntRaw(const CImage* source, DataType type, bool isSigned,
                                const ProgressPtr& progress) {
  const CImage& from = source != nullptr ? *source : *this;
  const auto kind = korin::ElementKindOf(from);
  if (!kind) return InstallUnconverted(source, type, isSigned, progress);
  const ElementKind target = *korin::ElementKindOf(type, isSigned);
  const auto bounds = korin::RangeOf(target);
  const PhysicalFigures figures = FiguresOf(korin::RequirePixels(from, *kind), true);
  double shift = 0.0;
  if (figures.minimum < bounds.low || figures.maximum > bounds.high) {
    // Values that cannot all fit are centred on the first plane's average and lose
    // both ends; others are moved to begin at the lowest code.
    shift = figures.maximum - figures.minimum > bounds.high - bounds.low
                ? -figures.firstAverage
                : bounds.low - figures.minimum;
  }
  auto converted = ConvertedClone(
      from, type, false, progress,
      korin::ShiftClampConversion(*kind, target, from.m_bscale, from.m_bzero, shift));
  if (!converted) return InstallUnconverted(source, type, isSigned, progress);
  converted->m_signed = isSigned;
  converted->m_bzero = from.m_bzero - shift;
  TakeConversion(std::move(*converted), source != nullptr ? 1 : 2);
}

void CImage::ChangeBitsToIntCooked(const CImage* source, DataType type, bool isSigned,
                                   const ProgressPtr& progress) {
  const CImage& from = source != nullptr ? *source : *this;
  korin::ConversionRanges ranges;
  for (int plane = 0; plane < from.GetPlanes(); ++plane) {
    // A plane without levels of its own is taken to show 0 to 1.
    const auto index = static_cast<std::size_t>(plane);
    ranges.emplace_back(index < from.m_levelMin.size() ? from.m_levelMin[index] : 0.0,
                        index < from.m_levelMax.size() ? from.m_levelMax[index] : 1.0);
  }
  NormalizeTo(source, type, isSigned, std::move(ranges), progress);
}

void CImage::ChangeBitsToIntMinMax(const CImage* source, DataType type, bool isSigned,
                                   const ProgressPtr& progress) {
  NormalizeTo(source, type, isSigned, {}, progress);
}

// Maps each plane's level range, or without levels the data range, onto the whole
// range of the type. The scaling of the result follows from the data range in both.
void CImage::NormalizeTo(const CImage* source, DataType type, bool isSigned,
                         std::vector<std::pair<double, double>> levels,
                         const ProgressPtr& progress) {
  const CImage& from = source != nullptr ? *source : *this;
  const auto kind = korin::ElementKindOf(from);
  if (!kind) return InstallUnconverted(source, type, isSigned, progress);
  const ElementKind target = *korin::ElementKindOf(type, isSigned);
  const auto bounds = korin::RangeOf(target);
  const PhysicalFigures figures = FiguresOf(korin::RequirePixels(from, *kind), false);
  const bool cooked = !levels.empty();
  if (!cooked) levels.emplace_back(figures.minimum, figures.maximum);
  auto converted = ConvertedClone(
      from, type, cooked, progress,
      korin::NormalizeMappingConversion(*kind, target, from.m_bscale, from.m_bzero, levels));
  if (!converted) return InstallUnconverted(source, type, isSigned, progress);
  converted->m_signed = isSigned;
  converted->m_bscale = (figures.maximum - figures.minimum) / bounds.range;
  converted->m_bzero = figures.minimum - converted->m_bscale * bounds.offset;
  if (cooked) {
    const std::size_t planes = levels.size();
    converted->m_levelMin.assign(planes, bounds.low);
    converted->m_levelMax.assign(planes, bounds.high);
    converted->m_levelRange.assign(planes, bounds.high - bounds.low);
  }
  TakeConversion(std::move(*converted), source != nullptr ? 1 : 2);
}

// Becomes the converted image. Its pixels are moved, not copied; the histogram
// sample is rebuilt as often as the copies that this saves would have done, so that
// the random sequence goes on as if they had been made.
void CImage::TakeConversion(CImage&& converted, int rebuilds) {
  auto header = std::move(m_pHeader);
  *this = std::move(converted);
  if (header) {
    // The header object stays: callers may hold it.
    *header = std::move(Header());
    m_pHeader = std::move(header);
  }
  for (int i = 0; i < rebuilds; ++i) RebuildHistogramCull();
}

// What is left when the pixels could not be converted: this image with the new type
// over a store of zeros.
void CImage::InstallUnconverted(const CImage* source, DataType type, bool isSigned,
                                const ProgressPtr& progress) {
  const auto own = VmManager();
  const auto manager = own ? own : korin::RequireManager(source != nullptr ? *source : *this);
  auto store = std::make_unique<CVmImage>(manager, korin::BitsOf(type), GetWidth(), GetHeight(),
                                          GetPlanes(), progress);
  m_pVmImage = std::move(store);
  m_BitsPixel = type;
  m_signed = isSigned;
}
