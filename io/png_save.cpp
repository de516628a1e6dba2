#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "korinimage/io/file_error.h"
#include "korinimage/io/png_file.h"
#include "korinimage/scoped_progress.h"
#include "output_file.h"
#include "pixel_rows.h"
#include "png_stream.h"

namespace korin {

namespace {

std::vector<PngLevel> Levels(const CImage& image, const std::filesystem::path& file,
                             const PngOptions& options) {
  std::vector<PngLevel> levels = options.levels;
  if (levels.empty()) {
    const std::size_t count = std::min(image.GetLevelMin().size(), image.GetLevelMax().size());
    for (std::size_t i = 0; i < count; ++i) {
      levels.push_back({image.GetLevelMin()[i], image.GetLevelMax()[i]});
    }
  }
  if (levels.size() < static_cast<std::size_t>(image.GetPlanes())) {
    throw FileError(file, "has " + std::to_string(levels.size()) + " display levels for " +
                              std::to_string(image.GetPlanes()) + " planes");
  }
  return levels;
}

// One channel of consecutive rows: physical values to codes.
class Painter {
 public:
  Painter(const CImage& image, const PngLevel& level, int bits)
      : m_bscale(image.GetBscale()),
        m_bzero(image.GetBzero()),
        m_black(level.black),
        m_span(level.white - level.black),
        m_top(bits == 16 ? 65535.0 : 255.0),
        m_wide(bits == 16) {}

  // `to` is the first sample of the channel, `stride` bytes lie between samples.
  template <typename T>
  void Row(const BYTE* from, std::int64_t count, std::uint8_t* to, std::int64_t stride) const {
    for (std::int64_t x = 0; x < count; ++x, to += stride) {
      T stored;
      std::memcpy(&stored, from + x * static_cast<std::int64_t>(sizeof(T)), sizeof(T));
      const double physical = static_cast<double>(stored) * m_bscale + m_bzero;
      double part = (physical - m_black) / m_span;
      part = part < 1.0 ? part : 1.0;  // NaN ends here: white
      part = part > 0.0 ? part : 0.0;
      const auto code = static_cast<unsigned>(part * m_top + 0.5);
      if (m_wide) {
        to[0] = static_cast<std::uint8_t>(code >> 8U);
        to[1] = static_cast<std::uint8_t>(code & 0xFFU);
      } else {
        to[0] = static_cast<std::uint8_t>(code);
      }
    }
  }

 private:
  double m_bscale;
  double m_bzero;
  double m_black;
  double m_span;
  double m_top;
  bool m_wide;
};

}  // namespace

void SavePng(CImage& image, const std::filesystem::path& file, const PngOptions& options,
             const std::shared_ptr<Progress>& progress) {
  RequirePixels(image);
  if (options.bits != 8 && options.bits != 16) {
    throw FileError(file, "cannot have " + std::to_string(options.bits) + " bits a sample",
                    "8 and 16 are possible");
  }
  std::vector<int> channels = {options.plane};
  if (options.plane == PngOptions::kAllPlanes) {
    channels = image.GetPlanes() == 3 ? std::vector<int>{0, 1, 2} : std::vector<int>{0};
    if (image.GetPlanes() != 1 && image.GetPlanes() != 3) {
      throw FileError(file, "cannot show " + std::to_string(image.GetPlanes()) + " planes at once",
                      "choose one plane");
    }
  } else if (options.plane < 0 || options.plane >= image.GetPlanes()) {
    throw FileError(file, "cannot show plane " + std::to_string(options.plane) + " of " +
                              std::to_string(image.GetPlanes()));
  }
  const std::vector<PngLevel> levels = Levels(image, file, options);
  for (const int plane : channels) {
    const PngLevel& level = levels[static_cast<std::size_t>(plane)];
    const double span = level.white - level.black;
    if (!(std::abs(span) > 0.0) || !std::isfinite(span)) {
      throw FileError(file, "has no span between black and white in plane " + std::to_string(plane),
                      "set display levels first");
    }
  }

  OutputFile output(file);
  const std::int64_t width = image.GetWidth();
  const std::int64_t height = image.GetHeight();
  const auto channelCount = static_cast<std::int64_t>(channels.size());
  const std::int64_t sampleBytes = options.bits / 8;
  const std::int64_t rowBytes = width * channelCount * sampleBytes;
  // A band of rows is painted plane by plane, so that one block at a time is held.
  const std::int64_t bandRows =
      std::min(height, RowsPerStep(std::max(rowBytes, width * image.GetBytesPixel())));
  std::vector<std::uint8_t> band(static_cast<std::size_t>(bandRows * rowBytes));
  PngStream stream(output, static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height),
                   static_cast<int>(channelCount), options.bits);
  ImageRowsScopedProgress told(progress, 1, height);
  for (std::int64_t done = 0; done < height; done += bandRows) {
    const std::int64_t rows = std::min(bandRows, height - done);
    const std::int64_t first = options.flip ? height - done - rows : done;
    told.Row(0, done);
    for (std::int64_t channel = 0; channel < channelCount; ++channel) {
      const int plane = channels[static_cast<std::size_t>(channel)];
      const Painter painter(image, levels[static_cast<std::size_t>(plane)], options.bits);
      WithPixelType(image.GetBitsPixel(), image.IsSigned(), [&](auto kind) {
        ForRowRuns(image, plane, first, rows, 1, BlockIntent::Read,
                   [&](const BYTE* pixels, std::int64_t y, std::int64_t) {
                     const std::int64_t line = options.flip ? first + rows - 1 - y : y - first;
                     painter.Row<decltype(kind)>(
                         pixels, width, band.data() + line * rowBytes + channel * sampleBytes,
                         channelCount * sampleBytes);
                   });
      });
    }
    for (std::int64_t line = 0; line < rows; ++line) stream.WriteRow(band.data() + line * rowBytes);
  }
  stream.End();
  output.Commit();
}

void SavePngRows(const std::filesystem::path& file, int width, int height, int channels,
                 const std::function<void(int, std::uint8_t*)>& row) {
  if (width < 1 || height < 1 || (channels != 1 && channels != 3)) {
    throw FileError(file, "cannot be a picture of " + std::to_string(width) + " x " +
                              std::to_string(height) + " pixels and " + std::to_string(channels) +
                              " channels");
  }
  OutputFile output(file);
  PngStream stream(output, static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height),
                   channels, 8);
  std::vector<std::uint8_t> samples(static_cast<std::size_t>(width) *
                                    static_cast<std::size_t>(channels));
  for (int y = 0; y < height; ++y) {
    row(y, samples.data());
    stream.WriteRow(samples.data());
  }
  stream.End();
  output.Commit();
}

}  // namespace korin
