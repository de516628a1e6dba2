#include "command_run.h"

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
    if (kWindows) {  // where starting a program takes long, the most different ones
      return {{"--memory", "64"}, Arguments{"--memory", planesMib, "--policy", "planes"} + swap};
    }
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
      const std::string written = output.empty() ? std::string() : Contents(output);
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
  const Arguments synth = {"synth", frame, "--width", "1001", "--height", "668", "--planes", "3"};
  ASSERT_EQ(RunCommand(synth).code, 0);
  const std::string made = Contents(frame);
  ExpectSame(synth, frame);
  EXPECT_TRUE(Contents(frame) == made);
  // Integers, and reals of a scaling.
  const std::string real = Path("real.fits");
  ExpectSame({"convert", frame, Path("c.fits"), "--bits", "8", "--level", "minmax"},
             Path("c.fits"));
  ExpectSame({"convert", Path("c.fits"), real, "--bits", "-32"}, real, "12");
  for (const std::string& each : {frame, real}) {
    ExpectSame({"stats", each, "--json"});
    ExpectSame({"histogram", each, "--json", "--png", Path("h.png")}, Path("h.png"));
    ExpectSame({"preview", each, "-o", Path("p.png"), "--percentile", "99.5"}, Path("p.png"));
  }
  ExpectSame({"convert", real, Path("d.fits"), "--bits", "16", "--level", "cooked"},
             Path("d.fits"));
  // A converted image shows the same physical values, within a code.
  const std::string before = RunCommand({"stats", real, "--json"}).out;
  const std::string after = RunCommand({"stats", Path("d.fits"), "--json"}).out;
  for (const char* key : {"min", "max", "average"}) {
    EXPECT_NEAR(JsonNumber(after, key), JsonNumber(before, key), JsonNumber(after, "bscale"))
        << key;
  }
}

TEST_F(SameAnswersTest, WithinTheMemoryGiven) {
  if (kWindows) GTEST_SKIP() << "a program of Wine holds Wine's own memory as well";
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
