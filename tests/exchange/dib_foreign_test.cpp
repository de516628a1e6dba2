// Bitmap files of an independent program, and ours as it reads them. Skipped where
// the program is not installed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <random>
#include <set>
#include <string>

#include "dib_fixture.h"
#include "exchange/dib_bitmap.h"
#include "support/temporary_folder.h"

namespace korin::test {
namespace {

constexpr int kWidth = 23, kHeight = 17;

using Picture = std::function<Rgb(int x, int y)>;

// A fixed random byte of a place.
BYTE Noise(int x, int y, int salt) {
  std::mt19937 random(static_cast<unsigned>((x * 64 + y) * 4 + salt));
  return static_cast<BYTE>(random() >> 7);
}

Picture Colors(int count) {  // not more than `count` of them
  return [=](int x, int y) {
    const int color = Noise(x, y, 3) % count;
    return Rgb{Noise(color, 77, 0), Noise(color, 77, 1), Noise(color, 77, 2)};
  };
}
Rgb Any(int x, int y) { return {Noise(x, y, 0), Noise(x, y, 1), Noise(x, y, 2)}; }
Rgb Grey(int x, int y) { return {Noise(x, y, 0), Noise(x, y, 0), Noise(x, y, 0)}; }
Rgb BlackOrWhite(int x, int y) {
  const BYTE level = Noise(x, y, 0) & 1 ? 255 : 0;
  return {level, level, level};
}
Rgb FiveBits(int x, int y) {  // values that keep their high bits, rounded or truncated
  Rgb color = Any(x, y);
  for (BYTE& c : color) c = static_cast<BYTE>((c / 8 * 255 + 30) / 31);
  return color;
}

// A bitmap as a file: the block behind a file header.
Bytes PackFile(const Bitmap& bitmap) {
  const Bytes block = bitmap.Pack();
  Bytes file = {'B', 'M'};
  Append(file, static_cast<std::uint32_t>(14 + block.size()), 4);
  Append(file, 0, 4);
  Append(file, static_cast<std::uint32_t>(14 + block.size() - bitmap.pixels.size()), 4);
  file.insert(file.end(), block.begin(), block.end());
  return file;
}

class ForeignBitmaps : public DibTest {
 protected:
  std::string Path(const std::string& name) const { return (m_folder.Path() / name).string(); }

  bool Runs(const std::string& command) const {
    return std::system((command + " >" + Path("output") + " 2>&1").c_str()) == 0;
  }

  void WritePicture(const Picture& picture) const {
    const std::string head =
        "P6 " + std::to_string(kWidth) + " " + std::to_string(kHeight) + " 255\n";
    Bytes ppm(head.begin(), head.end());
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) {
        for (const BYTE c : picture(x, y)) ppm.push_back(c);
      }
    }
    PutContents(Path("in.ppm"), ppm);
  }

  // Has `command` make out.bmp of a picture and compares the image made of that;
  // `mask`: the bits that the file can hold. Gives depth and compression.
  std::pair<int, int> Check(const Picture& picture, const std::string& command, int mask) {
    WritePicture(picture);
    EXPECT_TRUE(Runs(command)) << command;
    Bytes file = Contents<Bytes>(Path("out.bmp"));
    if (file.size() < 54) return {};
    const Bytes block(file.begin() + 14, file.end());
    const auto header = ReadDibHeader(block);
    const auto pixels = Attach(block);
    EXPECT_TRUE(header && pixels);
    if (!header || !pixels) return {};
    // Where the file itself says that the pixels are.
    EXPECT_EQ(file[10] + 256 * file[11], 14 + header->pixelOffset);
    std::size_t at = 0;
    for (int plane = 0; plane < image.GetPlanes(); ++plane) {
      for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x, ++at) {
          const int expected = picture(x, y)[static_cast<std::size_t>(plane)] & mask;
          EXPECT_EQ((*pixels)[at] & mask, expected) << command << " at " << x << ", " << y;
          if ((*pixels)[at] != expected && HasFailure()) return {};
        }
      }
    }
    return {header->bits, static_cast<int>(header->compression)};
  }

  // What the other program makes of a file of ours against what we make of it.
  void Compare(const Bitmap& bitmap, const std::string& command, int mask) {
    const auto pixels = Attach(bitmap.Pack());
    ASSERT_TRUE(pixels);
    PutContents(Path("in.bmp"), PackFile(bitmap));
    ASSERT_TRUE(Runs(command)) << command;
    const Bytes theirs = Contents<Bytes>(Path("out.raw"));  // red, green, blue of each pixel
    const std::size_t count = static_cast<std::size_t>(kWidth * kHeight);
    ASSERT_EQ(theirs.size(), 3 * count);
    for (std::size_t i = 0; i < theirs.size(); ++i) {
      const std::size_t plane = image.GetPlanes() == 1 ? 0 : i % 3;
      ASSERT_EQ((*pixels)[plane * count + i / 3] & mask, theirs[i] & mask) << "sample " << i;
    }
  }

 private:
  const ScratchFolder m_folder;
};

// Random run-length codes that describe a whole picture in every way there is.
Bytes RandomCodes(int bits, std::mt19937& random) {
  Bytes codes;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth;) {
      const auto count = static_cast<BYTE>(
          1 + random() % std::min<unsigned>(12, static_cast<unsigned>(kWidth - x)));
      if (random() % 8 == 0) {
        codes.insert(codes.end(), {0, 2, count, 0});
      } else if (count >= 3 && random() % 2 == 0) {
        codes.insert(codes.end(), {0, count});
        const int bytes = bits == 8 ? count : (count + 1) / 2;
        for (int i = 0; i < bytes + bytes % 2; ++i) codes.push_back(static_cast<BYTE>(random()));
      } else {
        codes.insert(codes.end(), {count, static_cast<BYTE>(random())});
      }
      x += count;
    }
    codes.insert(codes.end(), {0, static_cast<BYTE>(y == kHeight - 1 ? 1 : 0)});
  }
  return codes;
}

// Bitmaps of ours that the other programs can read too.
std::vector<Bitmap> OurBitmaps() {
  std::mt19937 random(3);
  std::vector<Bitmap> all;
  for (const int bits : {1, 4, 8, 16, 24, 32}) {
    for (const int height : {kHeight, -kHeight}) {
      Bitmap bitmap{.width = kWidth, .height = height, .bits = bits};
      for (int i = 0; bits <= 8 && i < 1 << bits; ++i) bitmap.table.push_back(Any(i, 50));
      const auto mask = bits == 32 ? 0xFFFFFFu : (1u << bits) - 1;
      bitmap.SetPixels([&](int, int) { return static_cast<std::uint32_t>(random()) & mask; });
      all.push_back(bitmap);
      if ((bits == 4 || bits == 8) && height > 0) {
        bitmap.compression = bits == 8 ? 1 : 2;
        bitmap.pixels = RandomCodes(bits, random);
        all.push_back(bitmap);
      }
    }
  }
  return all;
}

TEST_F(ForeignBitmaps, AreReadAndUnderstood) {
  if (!Runs("convert -version")) GTEST_SKIP() << "the convert program is not installed";
  const auto convert = [&](const char* options) {
    return "convert " + Path("in.ppm") + " -depth 8 " + options + Path("out.bmp");
  };
  std::set<std::pair<int, int>> seen;
  seen.insert(Check(BlackOrWhite, convert("-monochrome BMP3:"), 255));
  seen.insert(Check(Colors(16), convert("-type Palette BMP3:"), 255));
  seen.insert(Check(Colors(200), convert("-type Palette -compress None BMP3:"), 255));
  seen.insert(Check(Colors(200), convert("-type Palette -compress RLE BMP3:"), 255));
  seen.insert(Check(FiveBits, convert("-type TrueColor -define bmp:subtype=RGB555 BMP:"), 0xF8));
  seen.insert(Check(FiveBits, convert("-type TrueColor -define bmp:subtype=RGB565 BMP:"), 0xF8));
  seen.insert(Check(Any, convert("-type TrueColor BMP3:"), 255));
  seen.insert(Check(Any, convert("-type TrueColor BMP:"), 255));
  seen.insert(Check(Grey, convert("-type TrueColor BMP3:"), 255));
  seen.insert(Check(Any, convert("-alpha set -type TrueColorAlpha BMP:"), 255));
  const std::set<std::pair<int, int>> expected = {{1, 0},  {4, 0},  {8, 0}, {8, 1},
                                                  {16, 3}, {24, 0}, {32, 3}};
  EXPECT_EQ(seen, expected);

  for (const Bitmap& bitmap : OurBitmaps()) {
    SCOPED_TRACE(testing::Message() << bitmap.bits << " bits, height " << bitmap.height
                                    << ", compression " << bitmap.compression);
    Compare(bitmap, "convert " + Path("in.bmp") + " -alpha off -depth 8 rgb:" + Path("out.raw"),
            bitmap.bits == 16 ? 0xF8 : 0xFF);
  }
}

}  // namespace
}  // namespace korin::test
