#include <png.h>

#include <cmath>
#include <limits>

#include "io_fixture.h"
#include "korinimage/exceptions.h"

namespace korin::test {
namespace {

struct Picture {
  int width = 0;
  int height = 0;
  int channels = 0;
  int bits = 0;
  std::vector<std::uint16_t> samples;
};

class PngTest : public IoTest {
 protected:
  Picture Read(const std::string& name) const {
    Picture picture;
    std::FILE* file = std::fopen(Path(name).string().c_str(), "rb");
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file);
    png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    picture.width = static_cast<int>(png_get_image_width(png, info));
    picture.height = static_cast<int>(png_get_image_height(png, info));
    picture.channels = png_get_channels(png, info);
    picture.bits = png_get_bit_depth(png, info);
    png_bytepp rows = png_get_rows(png, info);
    for (int y = 0; y < picture.height; ++y) {
      for (int i = 0; i < picture.width * picture.channels; ++i) {
        picture.samples.push_back(
            picture.bits == 8
                ? rows[y][i]
                : static_cast<std::uint16_t>(rows[y][2 * i] << 8 | rows[y][2 * i + 1]));
      }
    }
    png_destroy_read_struct(&png, &info, nullptr);
    std::fclose(file);
    return picture;
  }

  template <typename T>
  std::unique_ptr<CImage> Make(CImage::DataType type, bool isSigned, int width, int height,
                               int planes, const std::vector<T>& values, double bscale = 1.0,
                               double bzero = 0.0) {
    auto image = std::make_unique<CImage>(m_manager, type, width, height, planes, bscale, bzero,
                                          isSigned, nullptr);
    SetPixels(*image, BytesOf(values));
    return image;
  }
  using Samples = std::vector<std::uint16_t>;
};

TEST_F(PngTest, MapsPhysicalValuesOfEveryType) {
  PngOptions options;
  options.levels = {{100.0, 202.0}};
  // Physical values below, at, inside, at and above the levels.
  const auto check = [&](CImage& image) {
    SavePng(image, Path("p.png"), options);
    EXPECT_EQ(Read("p.png").samples, (Samples{0, 0, 50, 255, 255})) << image.GetBitsPixel();
  };
  const std::vector<double> physical = {90, 100, 120, 202, 300};
  const auto make = [&](auto kind, CImage::DataType type, bool isSigned, double bscale,
                        double bzero) {
    std::vector<decltype(kind)> stored;
    for (const double value : physical) {
      stored.push_back(static_cast<decltype(kind)>((value - bzero) / bscale));
    }
    return Make(type, isSigned, 5, 1, 1, stored, bscale, bzero);
  };
  check(*make(std::uint8_t{}, CImage::DataTypeInt8, false, 1.0, 90.0));
  check(*make(std::int16_t{}, CImage::DataTypeInt16, true, -1.0, 20.0));
  check(*make(std::uint16_t{}, CImage::DataTypeInt16, false, 0.5, 0.0));
  check(*make(std::int32_t{}, CImage::DataTypeInt32, true, 1.0, 1000.0));
  check(*make(std::uint32_t{}, CImage::DataTypeInt32, false, 1.0, -4294966200.0));
  check(*make(float{}, CImage::DataTypeFloat, true, 1.0, 0.0));
  check(*make(double{}, CImage::DataTypeDouble, true, 2.0, 1.0));
}

TEST_F(PngTest, DrawsGreyAndColourTheRightWayUp) {
  const auto grey =
      Make<std::uint16_t>(CImage::DataTypeInt16, false, 2, 2, 1, {1, 2, 65534, 65535});
  PngOptions options;
  options.bits = 16;
  options.levels = {{0.0, 65535.0}};
  SavePng(*grey, Path("g.png"), options);
  Picture picture = Read("g.png");
  EXPECT_EQ(picture.bits, 16);
  EXPECT_EQ(picture.channels, 1);
  EXPECT_EQ(picture.samples, (Samples{1, 2, 65534, 65535}));
  options.flip = true;
  SavePng(*grey, Path("g.png"), options);
  EXPECT_EQ(Read("g.png").samples, (Samples{65534, 65535, 1, 2}));

  const auto colour = Make<std::uint8_t>(CImage::DataTypeInt8, false, 1, 2, 3, {1, 2, 3, 4, 5, 6});
  colour->AllocLevel();
  for (int plane = 0; plane < 3; ++plane) colour->SetLevel(plane, 0, 255);
  SavePng(*colour, Path("c.png"));
  picture = Read("c.png");
  EXPECT_EQ(picture.channels, 3);
  EXPECT_EQ(picture.samples, (Samples{1, 3, 5, 2, 4, 6}));
  PngOptions one;
  one.plane = 1;
  SavePng(*colour, Path("c.png"), one);
  EXPECT_EQ(Read("c.png").samples, (Samples{3, 4}));
}

TEST_F(PngTest, DrawsNanWhiteAndRefusesWhatCannotBeShown) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  const auto image = Make<float>(CImage::DataTypeFloat, true, 4, 1, 1, {nan, inf, -inf, 0.5F});
  EXPECT_THROW(SavePng(*image, Path("n.png")), FileError) << "levels (0, 0)";
  image->AllocLevel();
  SavePng(*image, Path("n.png"));
  EXPECT_EQ(Read("n.png").samples, (Samples{255, 255, 0, 128}));

  PngOptions options;
  options.bits = 12;
  EXPECT_THROW(SavePng(*image, Path("n.png"), options), FileError);
  options.bits = 8;
  options.plane = 1;
  EXPECT_THROW(SavePng(*image, Path("n.png"), options), FileError);
  const auto two = Make<std::uint8_t>(CImage::DataTypeInt8, false, 1, 1, 2, {1, 2});
  two->AllocLevel();
  EXPECT_THROW(SavePng(*two, Path("n.png")), FileError);
  CImage empty;
  EXPECT_THROW(SavePng(empty, Path("n.png")), CVmManagerHandleDeletedError);
  EXPECT_EQ(Names(m_folder).size(), 1U);
}

}  // namespace
}  // namespace korin::test
