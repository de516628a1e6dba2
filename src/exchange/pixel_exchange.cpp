#include "exchange/pixel_exchange.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstring>

#include "image/image_pixels.h"
#include "image/pixel_access.h"
#include "platform/checked_math.h"

namespace korin::exchange {

std::int64_t g_maxMappedSamples = wire::pixels::kMaxSamples;

namespace {

using platform::ExchangeFile;
using platform::SharedMapping;

// Samples converted at once, on the stack of a worker.
constexpr std::int64_t kChunk = 8192;

constexpr std::int64_t kSampleBytes = sizeof(float);

std::optional<std::int64_t> SampleCount(const CImage& image) {
  return CheckedMul(image.GetPlanes(), image.GetHeight(), image.GetWidth());
}

template <typename T>
T LowBits(float value) {
  constexpr float kTwo31 = 2147483648.0F;
  if (!(std::abs(value) < kTwo31)) return 0;  // NaN too
  return static_cast<T>(static_cast<std::uint32_t>(static_cast<std::int32_t>(value)));
}

// Samples side by side in the store, to and from sample `at` of the mapping.
template <typename T>
bool Send(const SharedMapping& mapping, std::int64_t at, const T* samples, std::int64_t count) {
  if constexpr (std::is_same_v<T, float>) {
    return mapping.WriteAt(at * kSampleBytes, samples,
                           static_cast<std::size_t>(count * kSampleBytes));
  } else {
    std::array<float, kChunk> chunk;
    for (std::int64_t done = 0; done < count; done += kChunk) {
      const std::int64_t now = std::min(count - done, kChunk);
      std::transform(samples + done, samples + done + now, chunk.begin(),
                     [](T sample) { return static_cast<float>(sample); });
      if (!Send(mapping, at + done, chunk.data(), now)) return false;
    }
    return true;
  }
}

template <typename T>
bool Receive(const SharedMapping& mapping, std::int64_t at, T* samples, std::int64_t count) {
  if constexpr (std::is_same_v<T, float>) {
    if (mapping.ReadAt(at * kSampleBytes, samples,
                       static_cast<std::size_t>(count * kSampleBytes))) {
      return true;
    }
    std::fill_n(samples, count, 0.0F);  // the block may hold another image's bytes
    return false;
  } else {
    std::array<float, kChunk> chunk;
    bool received = true;
    for (std::int64_t done = 0; done < count; done += kChunk) {
      const std::int64_t now = std::min(count - done, kChunk);
      received = Receive(mapping, at + done, chunk.data(), now) && received;
      std::transform(chunk.begin(), chunk.begin() + now, samples + done, LowBits<T>);
    }
    return received;
  }
}

// Runs body(address, plane, y, lines) over stretches of rows on the kernels' threads;
// true when every call answers true.
template <typename Body>
bool ForStretches(const PixelView& view, BlockIntent intent, Body&& body) {
  std::atomic<bool> good{true};
  for (std::int64_t plane = 0; plane < view.planes; ++plane) {
    for (std::int64_t y = 0; y < view.height && good;) {
      const RowBatch batch(*view.store, plane, y, view.height - y, intent,
                           intent == BlockIntent::Read);
      ParallelStretches(batch, view.store->GetBytesPerLine(),
                        [&](BYTE* rows, std::int64_t first, std::int64_t lines) {
                          if (!body(rows, plane, first, lines)) good = false;
                        });
      y += batch.RowCount();
    }
  }
  return good;
}

template <typename T>
bool SendAs(const PixelView& view, const SharedMapping& mapping) {
  const std::int64_t stride = view.StrideElements();
  return ForStretches(
      view, BlockIntent::Read,
      [&](const BYTE* bytes, std::int64_t plane, std::int64_t y, std::int64_t lines) {
        const T* rows = reinterpret_cast<const T*>(bytes);
        const std::int64_t at = (plane * view.height + y) * view.width;
        if (stride == view.width) return Send(mapping, at, rows, lines * view.width);
        bool sent = true;
        for (std::int64_t line = 0; line < lines && sent; ++line) {
          sent = Send(mapping, at + line * view.width, rows + line * stride, view.width);
        }
        return sent;
      });
}

// The store was made for the image just now: its rows are the image's rows.
template <typename T>
bool ReceiveAs(const PixelView& view, const SharedMapping& mapping) {
  return ForStretches(view, BlockIntent::Overwrite,
                      [&](BYTE* bytes, std::int64_t plane, std::int64_t y, std::int64_t lines) {
                        return Receive(mapping, (plane * view.height + y) * view.width,
                                       reinterpret_cast<T*>(bytes), lines * view.width);
                      });
}

// Calls f with the type in which pixels of an image travel through the mapping;
// true when they do not.
template <typename F>
bool WithTravelType(const CImage& image, F&& f) {
  switch (image.GetBitsPixel()) {
    case CImage::DataTypeInt8:
      return f(std::type_identity<std::uint8_t>{}, ElementKind::UInt8);
    case CImage::DataTypeInt16:  // unsigned, whatever the image says
      return f(std::type_identity<std::uint16_t>{}, ElementKind::UInt16);
    case CImage::DataTypeFloat:
      return f(std::type_identity<float>{}, ElementKind::Float);
    default:
      return true;
  }
}

// body(segment of rows side by side in memory) over all rows in order; a false
// answer ends it.
template <typename Body>
bool ForSegments(const PixelView& view, BlockIntent intent, Body&& body) {
  for (std::int64_t plane = 0; plane < view.planes; ++plane) {
    for (std::int64_t y = 0; y < view.height;) {
      const RowBatch batch(*view.store, plane, y, view.height - y, intent,
                           intent == BlockIntent::Read);
      bool good = true;
      for (const RowBatch::Segment& segment : batch.Segments()) good = body(segment, good) && good;
      if (!good) return false;
      y += batch.RowCount();
    }
  }
  return true;
}

std::optional<PixelView> PixelsOf(const CImage& image) {
  const auto kind = ElementKindOf(image);
  if (!kind || !PixelBytes(image)) return std::nullopt;
  return RequirePixels(image, *kind);
}

}  // namespace

bool NeedsFile(const CImage& image) {
  if (image.GetPlanes() < 1 || image.GetHeight() < 1 || image.GetWidth() < 1) return false;
  const auto samples = SampleCount(image);
  return !samples || *samples > g_maxMappedSamples;
}

std::optional<std::int64_t> PixelBytes(const CImage& image) {
  const auto samples = SampleCount(image);
  if (!samples || *samples < 1 || image.GetBytesPixel() < 1) return std::nullopt;
  return CheckedMul(*samples, image.GetBytesPixel());
}

bool SendPixels(const CImage& image, const SharedMapping& mapping) {
  return WithTravelType(image, [&]<typename T>(std::type_identity<T>, ElementKind kind) {
    return SendAs<T>(RequirePixels(image, kind), mapping);
  });
}

bool ReceivePixels(CImage& image, const SharedMapping& mapping) {
  return WithTravelType(image, [&]<typename T>(std::type_identity<T>, ElementKind kind) {
    return ReceiveAs<T>(RequirePixels(image, kind), mapping);
  });
}

bool SavePixels(const CImage& image, ExchangeFile& file) {
  const auto view = PixelsOf(image);
  if (!view) return false;
  const std::int64_t lineBytes = view->store->GetBytesPerLine();
  const std::int64_t rowBytes = view->width * image.GetBytesPixel();
  return ForSegments(*view, BlockIntent::Read, [&](const RowBatch::Segment& segment, bool good) {
    if (!good) return false;
    if (rowBytes == lineBytes) {
      return file.Write(segment.address, static_cast<std::size_t>(segment.lines * rowBytes));
    }
    for (std::int64_t line = 0; line < segment.lines; ++line) {
      if (!file.Write(segment.address + line * lineBytes, static_cast<std::size_t>(rowBytes))) {
        return false;
      }
    }
    return true;
  });
}

bool LoadPixels(CImage& image, ExchangeFile& file) {
  const auto view = PixelsOf(image);
  if (!view) return false;
  const std::int64_t lineBytes = view->store->GetBytesPerLine();
  return ForSegments(*view, BlockIntent::Overwrite,
                     [&](const RowBatch::Segment& segment, bool good) {
                       const auto bytes = static_cast<std::size_t>(segment.lines * lineBytes);
                       if (good && file.Read(segment.address, bytes)) return true;
                       // Rows taken to be overwritten may hold another image's bytes.
                       std::memset(segment.address, 0, bytes);
                       return false;
                     });
}

}  // namespace korin::exchange
