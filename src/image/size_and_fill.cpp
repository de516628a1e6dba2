// Geometry changes, filling, and the image of physical values.
#include <algorithm>
#include <atomic>
#include <cmath>

#include "image/image_pixels.h"
#include "kernels/kernel_calls.h"
#include "kernels/row_batch.h"
#include "kernels/store_conversion.h"
#include "korinimage/exceptions.h"
#include "korinimage/image.h"
#include "korinimage/progress_win.h"

namespace {

using korin::PixelView;

// The stored form of a fill value. Integers: truncated toward zero and cut to the
// low bits, so 300 is 44 in 8 bits; what has no 64-bit form (NaN, infinities) is
// 0x80000000 before the cut. A double beyond float becomes an infinity.
template <typename T>
T FillValue(double value) {
  if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(value);
  } else {
    constexpr double kTwo63 = 9223372036854775808.0;
    const std::uint32_t bits = std::abs(value) < kTwo63
                                   ? static_cast<std::uint32_t>(static_cast<std::int64_t>(value))
                                   : 0x80000000u;
    return static_cast<T>(bits);
  }
}

template <typename T>
bool FillPlane(const PixelView& view, std::int64_t plane, T value) {
  std::atomic<bool> filled{true};
  const std::int64_t stride = view.StrideElements();
  for (std::int64_t y = 0; y < view.height && view.width > 0;) {
    // Columns beyond the image's own width keep their pixels.
    const auto intent =
        view.width == stride ? korin::BlockIntent::Overwrite : korin::BlockIntent::Write;
    const korin::RowBatch batch(*view.store, plane, y, view.height - y, intent, false);
    const std::int64_t bytesPerLine = view.store->GetBytesPerLine();
    korin::ParallelStretches(batch, bytesPerLine,
                             [&](BYTE* rows, std::int64_t, std::int64_t lines) {
                               T* const pixels = reinterpret_cast<T*>(rows);
                               if (korin::kernels::Fill(pixels, view.width, lines, stride, value))
                                 return;
                               for (std::int64_t line = 0; line < lines; ++line) {
                                 std::fill_n(pixels + line * stride, view.width, T{});
                               }
                               filled = false;
                             });
    y += batch.RowCount();
  }
  return filled;
}

template <typename S>
bool ScaleRows(const korin::RowsToConvert& rows, double bscale, double bzero) {
  for (std::int64_t line = 0; line < rows.lines; ++line) {
    const S* from = reinterpret_cast<const S*>(rows.source) + line * rows.sourceStride;
    double* to = reinterpret_cast<double*>(rows.destination) + line * rows.destinationStride;
    for (std::int64_t x = 0; x < rows.width; ++x) {
      to[x] = static_cast<double>(from[x]) * bscale + bzero;
    }
  }
  return true;
}

}  // namespace

bool CImage::ChangeSize(int width, int height, const ProgressPtr& progress) {
  if (width == GetWidth() && height == GetHeight()) return true;
  const auto manager = korin::RequireManager(*this);
  std::unique_ptr<CVmImage> store;
  try {
    store = std::make_unique<CVmImage>(manager, korin::BitsOf(m_BitsPixel), width, height,
                                       GetPlanes(), progress);
  } catch (const korin::CVmMemoryAllocationError&) {
    return false;
  }
  m_axes[0] = width;
  m_axes[1] = height;
  m_pVmImage = std::move(store);
  RebuildHistogramCull();
  return true;
}

bool CImage::ChangeSize(int width, int height, HWND window, const wchar_t* caption) {
  return ChangeSize(width, height, korin::MakeWindowProgress(window, caption));
}

bool CImage::ChangePlanes(int planes, const ProgressPtr& progress) {
  // A two-dimensional image counts as one plane, whatever its plane count says.
  if (m_nDimension == 2 ? planes == 1 : planes == GetPlanes()) return true;
  const auto manager = korin::RequireManager(*this);
  m_nDimension = planes == 1 ? 2 : 3;
  m_axes[2] = planes;
  // When this throws, planes and dimension stay new beside the old store and levels.
  auto store = std::make_unique<CVmImage>(manager, korin::BitsOf(m_BitsPixel), GetWidth(),
                                          GetHeight(), planes, progress);
  AllocLevel();
  m_pVmImage = std::move(store);
  return true;
}

bool CImage::ChangePlanes(int planes, HWND window, const wchar_t* caption) {
  return ChangePlanes(planes, korin::MakeWindowProgress(window, caption));
}

bool CImage::Fill(int plane, double value) {
  (void)korin::RequireManager(*this);
  const auto kind = korin::ElementKindOf(*this);
  if (!kind) return false;
  const PixelView view = korin::RequirePixels(*this, *kind);
  return korin::DispatchElement(*kind, [&]<typename T>(std::type_identity<T>) {
    const T stored = FillValue<T>(value);
    if (plane >= 0) return FillPlane<T>(view, plane, stored);
    for (std::int64_t p = 0; p < view.planes; ++p) {
      if (!FillPlane<T>(view, p, stored)) return false;
    }
    return true;
  });
}

std::unique_ptr<CImage> CImage::ScalingAppliedImage(const ProgressPtr& progress) const {
  auto result = CloneWithoutImage(DataTypeDouble, {});
  const auto kind = korin::ElementKindOf(*this);
  if (!result || !kind) return result;
  auto* source = korin::RequirePixels(*this, *kind).store;
  const auto conversion = korin::DispatchElement(
      *kind, [this]<typename T>(std::type_identity<T>) -> korin::RowConversion {
        return [bscale = m_bscale, bzero = m_bzero](const korin::RowsToConvert& rows) {
          return ScaleRows<T>(rows, bscale, bzero);
        };
      });
  // The scaling attributes stay as they were copied, although the pixels hold
  // physical values now.
  return korin::ConvertRows(*result->m_pVmImage, *source, progress, conversion) ? std::move(result)
                                                                                : nullptr;
}

std::unique_ptr<CImage> CImage::ScalingAppliedImage(HWND window, const wchar_t* caption) const {
  return ScalingAppliedImage(korin::MakeWindowProgress(window, caption));
}
