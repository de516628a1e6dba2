#include <functional>
#include <set>

#include "dib_fixture.h"
#include "exchange/dib_bitmap.h"
#include "exchange/dib_rle.h"
#include "korinimage/exceptions.h"
#include "korinimage/progress_win.h"
#include "progress/test_window.h"

namespace korin::test {
namespace {

// --- every depth -----------------------------------------------------------------

std::vector<Rgb> RandomTable(int entries, bool color, std::mt19937& random) {
  std::vector<Rgb> table(static_cast<std::size_t>(entries));
  for (Rgb& c : table) {
    for (BYTE& channel : c) channel = static_cast<BYTE>(random());
    if (!color) c[1] = c[2] = c[0];
  }
  return table;
}

// What a stored pixel must become, told one pixel at a time.
Rgb ColorOf(const Bitmap& bitmap, std::uint32_t raw) {
  const auto byte = [](std::uint32_t value) { return static_cast<BYTE>(value); };
  if (bitmap.bits <= 8) {
    return raw < bitmap.table.size() ? bitmap.table[raw] : Rgb{0, 0, 0};
  }
  if (bitmap.bits == 16) {
    const auto five = [&](unsigned low) { return byte((raw >> low & 31) * 8); };
    return {five(10), five(5), five(0)};
  }
  return {byte(raw >> 16), byte(raw >> 8), byte(raw)};
}

TEST_F(DibTest, EveryDepthWidthAndRowOrderInEveryLayout) {
  std::mt19937 random(7);
  const auto tight = MakeManager(64, 1);  // one block in memory, the rest in the swap file
  for (const int bits : {1, 4, 8, 16, 24, 32}) {
    for (int width = 1; width <= 35; width += width < 10 ? 1 : 25) {
      for (const int height : {1, 5, -5}) {
        for (const bool color : {false, true}) {
          SCOPED_TRACE(testing::Message() << bits << " bits, " << width << " x " << height
                                          << (color ? " in colour" : " in grey"));
          Bitmap bitmap{.width = width, .height = height, .bits = bits};
          const int entries = bits <= 8 ? 1 << bits : 0;
          bitmap.table = RandomTable(entries, color, random);
          const int rows = std::abs(height);
          std::vector<std::uint32_t> raw(static_cast<std::size_t>(width * rows));
          const bool onePixel = color && height < 0;  // is enough, in one channel
          for (auto& pixel : raw) {
            pixel = static_cast<std::uint32_t>(random());
            if (bits < 32) pixel &= (1u << bits) - 1;
            if (bits > 8 && (!color || onePixel)) {
              pixel = bits == 16 ? pixel % 32 * 0x421 : pixel % 256 * 0x10101;
            }
          }
          if (bits > 8 && color) raw.back() = 1u << width % 3 * (bits == 16 ? 5 : 8);
          bitmap.SetPixels(
              [&](int x, int y) { return raw[static_cast<std::size_t>(y * width + x)]; });
          const int planes = color ? 3 : 1;
          Bytes expected;
          for (std::size_t plane = 0; plane < static_cast<std::size_t>(planes); ++plane) {
            for (const auto pixel : raw) {
              const Rgb c = ColorOf(bitmap, pixel);
              expected.push_back(bits == 16 && !color ? static_cast<BYTE>((pixel & 0xFE) << 2)
                                                      : c[plane]);
            }
          }
          const Bytes block = bitmap.Pack();
          for (const auto policy : {Policy::Blocks, Policy::Planes, Policy::Image}) {
            manager->SetAllocationPolicy(policy);
            ASSERT_EQ(Attach(block), expected);
          }
          const Dib dib(block);
          CImage paged;
          ASSERT_TRUE(paged.AttachDIB(tight, dib.handle, kSilent));
          ASSERT_EQ(ReadPixels<BYTE>(paged), expected);
          ASSERT_EQ(dib.Read(), block);
          ASSERT_EQ(image.GetPlanes(), planes);
          ASSERT_EQ(image.GetDimension(), color ? 3 : 2);
          ASSERT_EQ(image.GetOrgHeight(), height);
        }
      }
    }
  }
}

std::string State(CImage& image) {
  std::string text;
  for (const BYTE pixel : ReadPixels<BYTE>(image)) text += std::to_string(pixel) + " ";
  for (const int value : {static_cast<int>(image.GetBitsPixel()), image.IsSigned() ? 1 : 0,
                          image.GetWidth(), image.GetHeight(), image.GetPlanes(),
                          image.GetDimension(), image.GetOrgWidth(), image.GetOrgHeight()}) {
    text += ", " + std::to_string(value);
  }
  text += image.HasOwnLevel() ? ", own" : ", not own";
  text += ", cull " + std::to_string(image.GetHistogramCullXRef().size()) + " of " +
          std::to_string(image.GetHistogramCullYRef().size());
  for (const auto& numbers : {image.GetLevelMin(), image.GetLevelMax(), image.GetLevelRange(),
                              std::vector<double>{image.GetBscale(), image.GetBzero()}}) {
    text += ",";
    for (const double number : numbers) text += " " + std::to_string(static_cast<int>(number));
  }
  return text;
}

TEST_F(DibTest, AttributesAreThoseOfABitmap) {
  image = CImage(manager, CImage::DataTypeDouble, 3, 3, 2, 7.0, 5.0, true, kSilent);
  image.SetOrgFileName(L"kept");
  image.Header().Add(L"OBJECT  = 'M 31'");
  Bitmap bitmap{.width = 2, .height = -3};
  bitmap.SetPixels([](int x, int) { return x == 0 ? 0x10u : 0u; });
  const Dib dib(bitmap.Pack());
  // No manager named: the image's own.
  ASSERT_TRUE(image.AttachDIB({}, dib.handle, kSilent));
  EXPECT_EQ(image.VmManager(), manager);
  EXPECT_EQ(State(image),
            "0 0 0 0 0 0 0 0 0 0 0 0 16 0 16 0 16 0 , 8, 0, 2, 3, 3, 3, 2, -3, own, "
            "cull 2 of 3, 0 0 0, 255 255 255, 255 255 255, 1 0");
  EXPECT_EQ(image.GetOrgFileName(), L"kept");
  EXPECT_EQ(image.Header().GetCount(), 1);
}

// --- colours ---------------------------------------------------------------------

Bitmap Row16(const std::vector<std::uint32_t>& pixels) {
  Bitmap bitmap{.width = static_cast<int>(pixels.size()), .height = 1, .bits = 16};
  bitmap.SetPixels([&](int x, int) { return pixels[static_cast<std::size_t>(x)]; });
  return bitmap;
}

TEST_F(DibTest, SixteenBitLayouts) {
  const std::vector<std::uint32_t> k565 = {0xF800, 0x07E0, 0x001F}, k555 = {0x7C00, 0x03E0, 0x001F},
                                   k444 = {0x0F00, 0x00F0, 0x000F}, kOther = {0x1F, 0x7E0, 0xF800};
  struct Case {
    std::vector<std::uint32_t> masks, pixels;
    Bytes expected;
  };
  const std::vector<Case> cases = {
      {k565, {0xFFFF, 0x1234}, {248, 16, 252, 68, 248, 160}},
      // Alone, the white pixel is grey, and grey is read another way.
      {k565, {0xFFFF}, {248}},
      {k444, {0x0FED, 0xF123}, {240, 16, 224, 32, 208, 48}},
      {k555, {0xFFFF, 0x1234}, {248, 32, 248, 136, 248, 160}},
      {{}, {0x7FFF, 0x1234}, {248, 32, 248, 136, 248, 160}},
      {kOther, {0xFFFF, 0x1234}, {0, 0, 0, 0, 0, 0}},
      // The grey rule is not monotonic.
      {{}, {0x0421, 0x0842, 0x7FFF, 0x8000}, {128, 8, 248, 0}},
      {kOther, {0x0421}, {128}},
  };
  for (const Case& c : cases) {
    Bitmap bitmap = Row16(c.pixels);
    bitmap.masks = c.masks;
    bitmap.compression = c.masks.empty() ? 0 : 3;
    for (const std::uint32_t headerBytes : {40u, 52u, 56u, 108u, 124u}) {
      bitmap.headerBytes = headerBytes;
      // Three colours in front of the pixels; behind a short header they are the masks.
      for (const bool colors : {false, true}) {
        SCOPED_TRACE(testing::Message() << headerBytes << " " << c.pixels[0] << " " << colors);
        bitmap.colorsUsed = colors ? 3 : 0;
        const bool counted = headerBytes == 40 && !c.masks.empty();
        bitmap.table.assign(colors && !counted ? 3 : 0, Rgb{1, 2, 3});
        EXPECT_EQ(Attach(bitmap.Pack()), c.expected);
      }
    }
    if (!c.masks.empty()) {
      bitmap.headerBytes = 44;  // the masks would lie half inside
      EXPECT_FALSE(Attach(bitmap.Pack()));
    }
  }
  // 32 bits: the masks are stepped over and say nothing.
  Bitmap wide{.width = 1, .height = 1, .bits = 32, .compression = 3, .masks = kOther};
  wide.SetPixels([](int, int) { return 0xFF102030u; });
  EXPECT_EQ(Attach(wide.Pack()), (Bytes{0x10, 0x20, 0x30}));
}

TEST_F(DibTest, ColorTables) {
  Bitmap bitmap{.width = 4, .height = 1, .bits = 4, .table = std::vector<Rgb>(16, Rgb{9, 9, 9})};
  bitmap.SetPixels([](int x, int) { return x == 0 ? 15u : static_cast<unsigned>(x); });
  EXPECT_EQ(Attach(bitmap.Pack()), (Bytes{9, 9, 9, 9}));
  bitmap.table[12] = {9, 9, 8};  // no pixel has it, still it makes the image coloured
  EXPECT_EQ(Attach(bitmap.Pack())->size(), 12u);
  // A table shorter than the depth allows: indexes behind it are black, and the bytes
  // there are pixels.
  bitmap.colorsUsed = 2;
  bitmap.table = {{7, 7, 7}, {200, 200, 200}};
  EXPECT_EQ(Attach(bitmap.Pack()), (Bytes{0, 200, 0, 0}));
  // A longer one is stepped over as a whole, and looked at as a whole.
  bitmap.colorsUsed = 20;
  bitmap.table.resize(20, Rgb{1, 1, 1});
  EXPECT_EQ(Attach(bitmap.Pack()), (Bytes{1, 200, 1, 1}));
  bitmap.table[19] = {1, 0, 1};
  EXPECT_EQ(Attach(bitmap.Pack())->size(), 12u);
}

// --- run lengths -----------------------------------------------------------------

TEST_F(DibTest, RunLengthCodes) {
  struct Case {
    int bits;
    Bytes codes;
    Bytes expected;  // 4 x 3 indexes, top row first
  };
  const std::vector<Case> cases = {
      {8, {4, 1, 0, 0, 4, 2, 0, 0, 4, 3, 0, 1}, {3, 3, 3, 3, 2, 2, 2, 2, 1, 1, 1, 1}},
      {8, {2, 1, 0, 1, 4, 9}, {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 0, 0}},
      // Runs stop at the row's end and do not go on in the next row.
      {8, {9, 1, 2, 7, 0, 0, 1, 2}, {0, 0, 0, 0, 2, 0, 0, 0, 1, 1, 1, 1}},
      {8, {0, 3, 5, 6, 7, 99, 1, 8, 0, 0, 0, 4, 1, 2, 3, 4}, {0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8}},
      // A step to the right and up, then one out of the picture.
      {8, {1, 1, 0, 2, 1, 1, 1, 2, 0, 2, 9, 0, 5, 5}, {0, 0, 0, 0, 0, 0, 2, 0, 1, 0, 0, 0}},
      {8, {1, 1, 0, 2, 0, 200, 1, 2}, {0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0}},
      // Codes that break off.
      {8, {0, 6, 5, 6}, {0, 0, 0, 0, 0, 0, 0, 0, 5, 6, 0, 0}},
      {8, {1, 1, 0, 2, 1}, {0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0}},
      {8, {}, Bytes(12, 0)},
      {4, {3, 0x12, 1, 0x34, 0, 0, 4, 0x56}, {0, 0, 0, 0, 5, 6, 5, 6, 1, 2, 1, 3}},
      {4, {0, 3, 0x12, 0x3F, 1, 0x40, 0, 0, 1, 0x70}, {0, 0, 0, 0, 7, 0, 0, 0, 1, 2, 3, 4}},
      // Five pixels take three bytes, padded to four; the fifth is clipped.
      {4, {0, 5, 0x12, 0x34, 0x5F, 0, 0, 0, 9, 0xAB}, {0, 0, 0, 0, 10, 11, 10, 11, 1, 2, 3, 4}},
      {4, {0, 2, 1, 0, 0, 4, 0x12}, {0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 0}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(&c - cases.data());
    Bitmap bitmap{.width = 4, .height = 3, .bits = c.bits, .compression = c.bits == 8 ? 1u : 2u};
    for (int i = 0; i < 1 << c.bits; ++i) {
      const auto level = static_cast<BYTE>(i);
      bitmap.table.push_back({level, level, level});
    }
    bitmap.pixels = c.codes;
    EXPECT_EQ(Attach(bitmap.Pack()), c.expected);
    bitmap.height = -3;  // such bitmaps are always bottom row first
    EXPECT_FALSE(Attach(bitmap.Pack()));
  }
}

TEST_F(DibTest, DecordRleReplacesOnlyRunLengthBlocks) {
  Bitmap bitmap{.width = 5, .height = 2, .bits = 8, .compression = 1, .colorsUsed = 1};
  bitmap.table = {{1, 2, 3}};
  bitmap.pixels = {3, 4, 0, 1};
  Dib dib(bitmap.Pack());
  const HDIB old = dib.handle;
  ASSERT_EQ(DecordRle(&dib.handle), 1);
  EXPECT_NE(dib.handle, old);
  EXPECT_EQ(GlobalMemorySize(old), 0);
  bitmap.compression = 0;
  bitmap.pixels = {4, 4, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  Bytes expected = bitmap.Pack();
  expected[kDibImageBytesAt] = 16;
  EXPECT_EQ(dib.Read(), expected);

  const HDIB plain = dib.handle;
  EXPECT_EQ(DecordRle(&dib.handle), 1);
  EXPECT_EQ(dib.handle, plain);
  EXPECT_EQ(dib.Read(), expected);
  Dib scrap({1, 2, 3});
  EXPECT_EQ(DecordRle(&scrap.handle), 1);
  EXPECT_EQ(scrap.Read(), (Bytes{1, 2, 3}));

  EXPECT_EQ(DecordRle(nullptr), 0);
  HDIB none = nullptr;
  EXPECT_EQ(DecordRle(&none), 0);
  if (!kWindows) {  // which may have given the handle to another block by now
    HDIB dead = old;
    EXPECT_EQ(DecordRle(&dead), 0);
  }
  // A picture that would fill the memory is refused before anything is allocated.
  bitmap.compression = 1;
  bitmap.width = bitmap.height = 0x7FFFFFFF;
  Dib huge(bitmap.Pack());
  const HDIB kept = huge.handle;
  EXPECT_EQ(DecordRle(&huge.handle), 0);
  EXPECT_EQ(huge.handle, kept);
  EXPECT_EQ(huge.Read(), bitmap.Pack());
}

// --- lying headers ----------------------------------------------------------------

std::vector<Bitmap> OneOfEachKind() {
  std::vector<Bitmap> all;
  for (const int bits : {1, 4, 8, 16, 24, 32}) {
    Bitmap bitmap{.width = 5, .height = 3, .bits = bits};
    if (bits <= 8) bitmap.table.assign(std::size_t{1} << bits, Rgb{3, 2, 1});
    bitmap.SetPixels([](int x, int) { return static_cast<unsigned>(x) & 1; });
    all.push_back(bitmap);
    if (bits == 16 || bits == 32) {
      bitmap.compression = 3;
      bitmap.masks = {0x7C00, 0x03E0, 0x001F};
      all.push_back(bitmap);
    } else if (bits == 4 || bits == 8) {
      bitmap.compression = bits == 8 ? 1 : 2;
      bitmap.pixels = {3, 1, 0, 0, 5, 1};
      all.push_back(bitmap);
    }
  }
  return all;
}

TEST_F(DibTest, NoHeaderFieldIsTrusted) {
  std::vector<std::uint32_t> values = {2, 6, 0x8000, 0xFFFF, 0x00180001, 178956971, 0x3FFFFFF6};
  for (const std::uint32_t at : {0u, 4u, 8u, 12u, 16u, 24u, 32u, 40u, 52u, 124u, 256u, 1u << 28,
                                 1u << 29, 1u << 30, 1u << 31}) {
    for (const std::uint32_t value : {at - 3, at - 1, at, at + 1}) values.push_back(value);
  }
  // Run lengths may claim any size: too large is what does not fit the manager.
  manager = MakeManager(4096, 10, 1);
  manager->SetAllocationPolicy(Policy::Image);
  testing::internal::CaptureStderr();
  // A sound image before, as every refusal must leave it.
  Bitmap sound{.width = 2, .height = 2, .bits = 24};
  sound.SetPixels([](int x, int y) { return static_cast<unsigned>(x + 2 * y) * 0x10101; });
  for (const Bitmap& bitmap : OneOfEachKind()) {
    const Bytes block = bitmap.Pack();
    ASSERT_TRUE(Attach(block));
    int refused = 0;
    bool isSound = false;
    const auto check = [&](const Bytes& lie) {
      ASSERT_TRUE(isSound || Attach(sound.Pack()));
      isSound = false;
      if (const auto pixels = Attach(lie)) {
        // Whatever is accepted has all its pixels.
        ASSERT_EQ(pixels->size(), static_cast<std::size_t>(image.GetImageSize()));
        return;
      }
      ++refused;
      isSound = true;
      ASSERT_EQ(ReadPixels<BYTE>(image), (Bytes{0, 1, 2, 3}));
      ASSERT_EQ(image.GetOrgHeight(), 2);
    };
    const bool runs = bitmap.compression == 1 || bitmap.compression == 2;
    for (std::size_t at = 0; at < 40; ++at) {
      SCOPED_TRACE(testing::Message() << bitmap.bits << " bits, field at " << at);
      Bytes lie = block;
      // Claims of gigabytes are costly to check where run lengths may back them.
      const int step = runs && at >= 4 && at < 12 && at % 4 >= 2 ? 51 : 1;
      for (int value = 0; value < 256; value += step) {
        lie[at] = static_cast<BYTE>(value);
        check(lie);
      }
      lie = block;
      for (const std::uint32_t value : values) {
        if (at % 4 != 0) break;
        for (std::size_t i = 0; i < 4; ++i) lie[at + i] = static_cast<BYTE>(value >> 8 * i);
        check(lie);
      }
    }
    EXPECT_GT(refused, 1000);
    // Every shorter block is refused until only the padding of the last row is missing;
    // run lengths may break off anywhere.
    const std::size_t padding = static_cast<std::size_t>(-(bitmap.bits * 5 + 7) / 8 & 3);
    const std::size_t least = block.size() - (runs ? bitmap.pixels.size() : padding);
    for (std::size_t size = 0; size < block.size(); ++size) {
      Bytes cut = block;
      cut.resize(size);
      ASSERT_EQ(Attach(cut).has_value(), size >= least) << bitmap.bits << " bits, size " << size;
    }
  }
  EXPECT_FALSE(image.AttachDIB(manager, nullptr, kSilent));
  const std::string lines = testing::internal::GetCapturedStderr();
  EXPECT_NE(lines.find("m_pVmImage is nullptr\n"), std::string::npos);
}

TEST_F(DibTest, CompressionGoesWithTheDepth) {
  const std::set<std::pair<int, std::uint32_t>> understood = {
      {1, 0}, {4, 0}, {8, 0}, {16, 0}, {24, 0}, {32, 0}, {8, 1}, {4, 2}, {16, 3}, {32, 3}};
  for (const int bits : {0, 1, 2, 4, 8, 15, 16, 24, 32, 33}) {
    for (const std::uint32_t compression : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 0x10003u}) {
      Bitmap bitmap{.width = 1, .height = 1, .bits = bits, .compression = compression};
      bitmap.pixels.resize(2000);
      EXPECT_EQ(Attach(bitmap.Pack()).has_value(), understood.contains({bits, compression}))
          << bits << " bits, " << compression;
    }
  }
}

// --- failures and progress ---------------------------------------------------------

Bytes ColorBlock(int height) {
  Bitmap bitmap{.width = 2, .height = height, .bits = 24};
  bitmap.SetPixels([](int x, int y) { return static_cast<unsigned>(x + y); });
  return bitmap.Pack();
}

TEST_F(DibTest, ProgressOfTheRowsFollowsThatOfTheStore) {
  for (const auto& [height, rows] : std::vector<std::pair<int, std::vector<std::string>>>{
           {3, {"update 33", "update 66", "update 100", "finalize"}}, {1, {"finalize"}}}) {
    const auto allocation = std::make_shared<RecordingProgress>();
    const CVmImage store(manager, 8, 2, height, 3, allocation);
    auto expected = allocation->calls;
    expected.insert(expected.end(), rows.begin(), rows.end());
    const Dib dib(ColorBlock(height));
    const auto sink = std::make_shared<RecordingProgress>();
    ASSERT_TRUE(image.AttachDIB(manager, dib.handle, sink));
    EXPECT_EQ(sink->calls, expected);

    TestWindow window;
    ASSERT_TRUE(image.AttachDIB(manager, dib.handle, window.handle, L"caption"));
    ASSERT_FALSE(window.log.empty());
    EXPECT_EQ(window.log.back().wParam, kProgressFinalize);
    ASSERT_TRUE(image.AttachDIB(manager, dib.handle, HWND(), L"caption"));
  }
}

TEST_F(DibTest, WhateverFailsLeavesTheImage) {
  const Dib dib(ColorBlock(50));
  image = CImage(manager, CImage::DataTypeInt8, 4, 3, 2, 1.0, 0.0, false, kSilent);
  image.Fill(1, 77.0);
  const std::string before = State(image);

  const auto counting = std::make_shared<RecordingProgress>();
  ASSERT_TRUE(CImage().AttachDIB(manager, dib.handle, counting));
  for (int at = 0; at < static_cast<int>(counting->calls.size()); ++at) {
    const auto sink = std::make_shared<RecordingProgress>();
    sink->throwAt = at;
    EXPECT_THROW(image.AttachDIB(manager, dib.handle, sink), SinkError);
    ASSERT_EQ(State(image), before) << "call " << at;
  }

  const auto full = MakeManager(64, 1, 2);  // 300 bytes do not fit 3 blocks of 64
  testing::internal::CaptureStderr();
  EXPECT_FALSE(image.AttachDIB(full, dib.handle, kSilent));
  EXPECT_NE(testing::internal::GetCapturedStderr().find("m_pVmImage is nullptr\n"),
            std::string::npos);
  EXPECT_EQ(State(image), before);

  CImage empty;
  EXPECT_THROW(empty.AttachDIB({}, dib.handle, kSilent), CVmManagerHandleDeletedError);
  manager.reset();
  EXPECT_THROW(image.AttachDIB({}, dib.handle, kSilent), CVmManagerHandleDeletedError);
  // A damaged bitmap is found out before anybody asks for a manager.
  const Dib scrap({1, 2, 3});
  EXPECT_FALSE(image.AttachDIB({}, scrap.handle, kSilent));
}

}  // namespace
}  // namespace korin::test
