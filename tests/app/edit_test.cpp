#include <cstdint>
#include <fstream>
#include <thread>

#include "command_run.h"
#include "korinimage/shared_mem.h"

namespace korin::test {
namespace {

// Every type through two real processes: the file that comes out is the one that
// went in.
TEST_F(CommandTest, HandsFramesOver) {
  const std::string frame = Path("f.fits");
  ASSERT_EQ(RunCommand({"synth", frame, "--width", "301", "--height", "200", "--planes", "3"}).code,
            0);
  for (const std::vector<std::string>& type :
       {std::vector<std::string>{"8"}, {"16"}, {"16", "--signed"}, {"32"}, {"-32"}, {"-64"}}) {
    const std::string sent = Path("sent.fits");
    const std::string received = Path("received.fits");
    std::vector<std::string> convert = {"convert", frame, sent, "--bits"};
    convert.insert(convert.end(), type.begin(), type.end());
    ASSERT_EQ(RunCommand(convert).code, 0);
    Result sender;
    std::thread other([&] { sender = RunCommand({"send", sent, "--wait", "30"}); });
    if (type.front() == "8") {  // what could not be saved was not taken
      EXPECT_EQ(RunCommand({"receive", Swap(), "--wait", "30"}).code, 1);
    }
    const Result receiver = RunCommand({"receive", received, "--wait", "30"});
    other.join();
    ASSERT_EQ(receiver.code, 0) << receiver.err;
    ASSERT_EQ(sender.code, 0) << sender.err;
    EXPECT_TRUE(Contents(sent) == Contents(received)) << type.front();
  }
  // Nobody waits for an image that could not be saved.
  EXPECT_NE(RunCommand({"receive", Path("none/x.fits"), "--wait", "60"}).err.find("folder must"),
            std::string::npos);
  // What killed runs left is cleared away and stops nobody; whoever has the exchange
  // open does.
  for (const char* command : {"send", "receive"}) {
    std::ofstream(Path("korinimage-offer")).flush();
    std::ofstream(Path("korinimage-taken")).flush();
    const std::string file = command == std::string("send") ? frame : Path("x.fits");
    const Result alone = RunCommand({command, file, "--wait", "0"});
    EXPECT_EQ(alone.code, 1) << command;
    EXPECT_NE(alone.err.find("nobody"), std::string::npos) << alone.err;
    EXPECT_FALSE(std::filesystem::exists(Path("korinimage-offer"))) << command;
  }
  ASSERT_EQ(CSharedMem::CreateFileMappings(0), 1);
  EXPECT_NE(RunCommand({"send", frame, "--wait", "0"}).err.find("on its way"), std::string::npos);
  CSharedMem::CloseMappingHandles();
  if (!kWindows) {  // there only a console can interrupt
    EXPECT_EQ(RunCommand({"send", frame}, 600).code, 130);
  }
  EXPECT_EQ(RunCommand({"receive", Path("x.fits"), "--wait", "0"}).code, 1) << "nothing waits";
}

TEST_F(CommandTest, EditsFrames) {
  const std::string frame = Path("f.fits");
  const std::string out = Path("o.fits");
  ASSERT_EQ(RunCommand({"synth", frame, "--width", "50", "--height", "40", "--planes", "2"}).code,
            0);
  ASSERT_EQ(RunCommand({"fill", frame, out, "--value", "65541", "--plane", "1"}).code, 0);
  const std::string filled = RunCommand({"stats", out, "--json"}).out;
  const std::size_t second = filled.find("\"plane\":1");
  EXPECT_EQ(JsonNumber(filled, "min", second), 5) << "the low bits of 65541";
  EXPECT_EQ(JsonNumber(filled, "max", second), 5);
  EXPECT_EQ(JsonNumber(filled, "stddev", second), 0);
  EXPECT_GT(JsonNumber(filled, "min", filled.find("\"plane\":0")), 5);
  EXPECT_EQ(RunCommand({"fill", frame, out, "--value", "1", "--plane", "2"}).code, 2);

  // Values that were scaled integers, as reals: the same figures without a scaling.
  ASSERT_EQ(RunCommand({"convert", frame, out, "--bits", "8", "--level", "minmax"}).code, 0);
  ASSERT_EQ(RunCommand({"physical", out, Path("p.fits")}).code, 0);
  const std::string scaled = RunCommand({"stats", out, "--json"}).out;
  const std::string physical = RunCommand({"stats", Path("p.fits"), "--json"}).out;
  EXPECT_NE(JsonNumber(scaled, "bscale"), 1);
  EXPECT_EQ(JsonNumber(physical, "bscale"), 1);
  EXPECT_EQ(JsonNumber(physical, "max"), JsonNumber(scaled, "max"));
  EXPECT_NEAR(JsonNumber(physical, "average"), JsonNumber(scaled, "average"), 1e-9);

  ASSERT_EQ(RunCommand({"header", "set-times", frame, out, "--start", "2023-04-05T01:02:03",
                        "--exposure", "60", "--coadd", "3"})
                .code,
            0);
  EXPECT_EQ(RunCommand({"header", "get", out, "UT"}).out, "01:02:03.000\n");
  EXPECT_EQ(RunCommand({"header", "get", out, "EXP1TIME"}).out, "20.000\n");
  for (const char* start : {"yesterday", "2023-02-29T00:00:00", "2023-04-05T24:00:00"}) {
    EXPECT_EQ(
        RunCommand({"header", "set-times", frame, out, "--start", start, "--exposure", "1"}).code,
        2);
  }
}

// A colour bitmap of 2 x 2 pixels, bottom row first like FITS, with a gap before
// the pixels.
TEST_F(CommandTest, ReadsBitmaps) {
  std::string bmp = "BM";
  const auto number = [&](unsigned value, int size) {
    for (int i = 0; i < size; ++i) bmp += static_cast<char>(std::uint64_t{value} >> (8 * i) & 0xFF);
  };
  number(0, 8);
  number(14 + 40 + 6, 4);
  for (const unsigned value : {40U, 2U, 2U}) number(value, 4);
  number(1, 2);
  number(24, 2);
  for (int i = 0; i < 6; ++i) number(0, 4);
  bmp += "gap...";
  bmp += std::string("\x03\x02\x01\x06\x05\x04\0\0", 8);
  bmp += std::string("\x09\x08\x07\x0C\x0B\x0A\0\0", 8);
  const std::string file = Path("b.bmp");
  std::ofstream(file, std::ios::binary) << bmp;
  ASSERT_EQ(RunCommand({"from-bmp", file, Path("b.fits")}).code, 0);
  const std::string pixels = Contents(Path("b.fits")).substr(2880, 12);
  EXPECT_EQ(pixels, (std::string{1, 4, 7, 10, 2, 5, 8, 11, 3, 6, 9, 12}));
  // 16 bits, the three masks counted as colours as well: a red and a green pixel.
  bmp = std::string("BM\0\0\0\0\0\0\0\0", 10);
  for (const unsigned value : {66U, 40U, 2U, 1U, 16U << 16 | 1, 3U, 0U, 0U, 0U, 3U, 0U, 0xF800U,
                               0x7E0U, 0x1FU, 0x07E0F800U}) {
    number(value, 4);
  }
  std::ofstream(file, std::ios::binary) << bmp;
  ASSERT_EQ(RunCommand({"from-bmp", file, Path("b.fits")}).code, 0);
  EXPECT_EQ(Contents(Path("b.fits")).substr(2880, 6), std::string("\xF8\0\0\xFC\0\0", 6));
  bmp[10] = 20;  // pixels inside the header
  std::ofstream(file, std::ios::binary) << bmp;
  EXPECT_EQ(RunCommand({"from-bmp", file, Path("c.fits")}).code, 1);
  std::ofstream(file, std::ios::binary) << bmp.substr(0, 65);
  EXPECT_EQ(RunCommand({"from-bmp", file, Path("c.fits")}).code, 1);
  EXPECT_FALSE(std::filesystem::exists(Path("c.fits")));
}

}  // namespace
}  // namespace korin::test
