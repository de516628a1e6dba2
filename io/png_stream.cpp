#include "png_stream.h"

#include <csetjmp>

#include "korinimage/io/file_error.h"

namespace korin {

namespace {

void Quiet(png_structp, png_const_charp) {}

[[noreturn]] void Jump(png_structp png, png_const_charp) { png_longjmp(png, 1); }

}  // namespace

PngStream::PngStream(OutputFile& output, std::uint32_t width, std::uint32_t height, int channels,
                     int bits)
    : m_output(output) {
  m_png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, Jump, Quiet);
  if (m_png != nullptr) m_info = png_create_info_struct(m_png);
  if (m_info == nullptr || !Begin(width, height, channels, bits)) {
    png_destroy_write_struct(&m_png, &m_info);
    Fail();
  }
}

PngStream::~PngStream() { png_destroy_write_struct(&m_png, &m_info); }

bool PngStream::Begin(std::uint32_t width, std::uint32_t height, int channels, int bits) noexcept {
  if (setjmp(png_jmpbuf(m_png)) != 0) return false;
  png_set_write_fn(
      m_png, this,
      [](png_structp png, png_bytep bytes, png_size_t count) {
        auto* stream = static_cast<PngStream*>(png_get_io_ptr(png));
        if (!stream->m_output.TryWrite(bytes, count)) {
          stream->m_refused = true;
          png_error(png, "write");
        }
      },
      [](png_structp) {});
  png_set_user_limits(m_png, 0x7FFFFFFF, 0x7FFFFFFF);
  png_set_IHDR(m_png, m_info, width, height, bits,
               channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_set_compression_level(m_png, 5);
  png_write_info(m_png, m_info);
  return true;
}

bool PngStream::TryRow(const std::uint8_t* samples) noexcept {
  if (setjmp(png_jmpbuf(m_png)) != 0) return false;
  png_write_row(m_png, samples);
  return true;
}

bool PngStream::TryEnd() noexcept {
  if (setjmp(png_jmpbuf(m_png)) != 0) return false;
  png_write_end(m_png, m_info);
  return true;
}

void PngStream::WriteRow(const std::uint8_t* samples) {
  if (!TryRow(samples)) Fail();
}

void PngStream::End() {
  if (!TryEnd()) Fail();
}

void PngStream::Fail() const {
  if (m_refused) m_output.Fail();
  throw FileError(m_output.Name(), "cannot be written as PNG");
}

}  // namespace korin
