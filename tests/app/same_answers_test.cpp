#include <cmath>
#include <cstring>
#include <memory>

#include "command_run.h"
#include "korinimage/config.h"
#include "korinimage/image.h"
#include "korinimage/io/io.h"
#include "support/memory_config.h"

namespace korin::test {
namespace {

using Arguments = std::vector<std::string>;

Arguments operator+(Arguments a, const Arguments& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

class SameAnswersTest : public CommandTest {
 protected:
  // Ways to hold an image of 3.9 MiB: all in memory, or a quarter of it. Whole planes
  // need memory for those that are worked on together.
  std::vector<Arguments> Ways(const std::string& planesMib) const {
    const Arguments swap = {"--swap-dir", Swap()};
    return {{"--memory", "64"},
            {"--memory", "64", "--policy", "planes"},
            {"--memory", "64", "--policy", "image", "--threads", "1"},
            Arguments{"--memory", "1"} + swap,
            Arguments{"--memory", "1", "--block-size", "32", "--threads", "1"} + swap,
            Arguments{"--memory", "1", "--block-size", "500", "--threads", "3"} + swap,
            Arguments{"--memory", planesMib, "--policy", "planes"} + swap};
  }

  // Output and files are the same to the last byte; `output` is the file written.
  void ExpectSame(const Arguments& arguments, const std::string& output = {},
                  const std::string& planesMib = "5") {
    std::string text;
    std::string bytes;
    for (const Arguments& way : Ways(planesMib)) {
      const Result result = RunCommand(arguments + way);
      ASSERT_EQ(result.code, 0) << result.err;
      const std::string written = output.empty() ? std::string() : ReadText(output);
      if (text.empty() && bytes.empty()) {
        text = result.out;
        bytes = written;
      }
      EXPECT_EQ(result.out, text) << ::testing::PrintToString(arguments + way);
      EXPECT_TRUE(written == bytes) << ::testing::PrintToString(arguments + way);
    }
  }
};

TEST_F(SameAnswersTest, WhateverHoldsTheImage) {
  const std::string frame = Path("frame.fits");
  ASSERT_EQ(RunCommand({"synth", frame, "--width", "1001", "--height", "2003"}).code, 0);
  ExpectSame({"synth", Path("again.fits"), "--width", "1001", "--height", "2003"},
             Path("again.fits"));
  EXPECT_TRUE(ReadText(frame) == ReadText(Path("again.fits")));
  ExpectSame({"stats", frame, "--json"});
  ExpectSame({"histogram", frame, "--json", "--png", Path("h.png")}, Path("h.png"));
  ExpectSame({"preview", frame, "-o", Path("p.png"), "--percentile", "99.5"}, Path("p.png"));
  ExpectSame({"convert", frame, Path("c.fits"), "--bits", "8"}, Path("c.fits"));
  ExpectSame({"convert", frame, Path("r.fits"), "--bits", "-32"}, Path("r.fits"), "12");
}

// The same with colour, reals and a scaling that turns values round.
TEST_F(SameAnswersTest, OfScaledRealsInThreePlanes) {
  Config::SetDefaultConfig(std::make_shared<MemoryConfig>());
  auto settings = CVmManagerConfiguration::DefaultConfiguration();
  const auto manager = CVmManager::Create(std::move(settings));
  const int width = 400;
  const int height = 850;
  CImage image(manager, CImage::DataTypeFloat, width, height, 3, -0.25, 100.0, true, nullptr);
  std::vector<double> sums(3);
  double smallest = 1e9;
  for (int plane = 0; plane < 3; ++plane) {
    for (int y = 0; y < height; ++y) {
      BYTE* row = image.Store()->GetImageAdr(0, y, plane, true, true, nullptr);
      for (int x = 0; x < width; ++x) {
        const auto stored = static_cast<float>(std::sin(x * 0.1) * y + plane * 0.37);
        std::memcpy(row + x * 4, &stored, 4);
        const double physical = stored * -0.25 + 100.0;
        sums[static_cast<std::size_t>(plane)] += physical;
        smallest = std::min(smallest, physical);
      }
    }
  }
  const std::string frame = Path("real.fits");
  SaveFits(image, frame);
  image = CImage();

  ExpectSame({"stats", frame, "--json"});
  ExpectSame({"stats", frame, "--raw", "--json"});
  ExpectSame({"histogram", frame, "--json"});
  ExpectSame({"preview", frame, "-o", Path("p.png"), "--percentile", "98"}, Path("p.png"));
  ExpectSame({"convert", frame, Path("c.fits"), "--bits", "16", "--level", "cooked"},
             Path("c.fits"));
  // And right: physical values, scaled once.
  const std::string json = RunCommand({"stats", frame, "--json", "--policy", "blocks"}).out;
  EXPECT_EQ(JsonNumber(json, "min"), smallest);
  for (int plane = 0; plane < 3; ++plane) {
    const std::size_t at = json.find("\"plane\":" + std::to_string(plane));
    EXPECT_NEAR(JsonNumber(json, "average", at),
                sums[static_cast<std::size_t>(plane)] / width / height, 1e-9);
  }
  // A converted image shows the same physical values, within half a code.
  const std::string converted = RunCommand({"stats", Path("c.fits"), "--json"}).out;
  const double step = JsonNumber(converted, "bscale");
  for (const char* key : {"min", "max", "average"}) {
    EXPECT_NEAR(JsonNumber(converted, key), JsonNumber(json, key), step) << key;
  }
  Config::SetDefaultConfig(nullptr);
}

TEST_F(SameAnswersTest, WithinTheMemoryGiven) {
  const std::string frame = Path("frame.fits");
  ASSERT_EQ(RunCommand({"synth", frame, "--width", "8000", "--height", "8000", "--stars", "100",
                        "--memory", "32", "--swap-dir", Swap()})
                .code,
            0);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  // 122 MiB of pixels in 32 MiB; the program itself takes some 20 MiB.
  const Result stats = RunCommand({"stats", frame, "--memory", "32", "--swap-dir", Swap()});
  EXPECT_EQ(stats.code, 0) << stats.err;
  EXPECT_LT(stats.peakKib, (32 + 40) * 1024);
  const Result preview =
      RunCommand({"preview", frame, "-o", Path("p.png"), "--memory", "32", "--swap-dir", Swap()});
  EXPECT_EQ(preview.code, 0) << preview.err;
  EXPECT_LT(preview.peakKib, (32 + 40) * 1024);
#endif
}

}  // namespace
}  // namespace korin::test
