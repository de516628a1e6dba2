#include <fstream>

#include "command_run.h"

namespace korin::test {
namespace {

TEST_F(CommandTest, StatisticsComeAsJson) {
  // 2 x 2 pixels 1, 2, 2, 7 of a scaled image, written by hand.
  std::string text;
  for (std::string card :
       {"SIMPLE  = T", "BITPIX  = 16", "NAXIS   = 2", "NAXIS1  = 2", "NAXIS2  = 2",
        "BSCALE  = -2.0", "BZERO   = 100.0", "OBJECT  = 'Crab''s '  / nebula", "EXPTIME = 30.0",
        "OBSERVER= 'a\x1b[2J\xc2\x9bm'", "DATE-OBS= '2023-04-05T23:59:50'", "UT-END  = '00:00:10'",
        "END"}) {
    card.resize(80, ' ');
    text += card;
  }
  text.resize(2880, ' ');
  text += std::string("\0\1\0\2\0\2\0\7", 8);
  text.resize(5760, '\0');
  const std::string frame =
      Path(kWindows ? "a b \xC3\xA9\xE6\x97\xA5.fits" : "a \"b\" \xC3\xA9\xE6\x97\xA5.fits");
  const std::u8string name(frame.begin(), frame.end());
  std::ofstream(std::filesystem::path(name), std::ios::binary) << text;

  const Result stats = RunCommand({"stats", frame, "--json"});
  ASSERT_EQ(stats.code, 0) << stats.err;
  EXPECT_EQ(stats.out.find("{\"file\":\"" + InJson(frame) +
                           "\",\"width\":2,\"height\":2,\"planes\":1,\"bits\":16,\"signed\":true,"
                           "\"bscale\":-2,\"bzero\":100,\"statistics\":[{\"plane\":-1,\"min\":86,"
                           "\"max\":98,\"average\":94,\"stddev\":4.69041575982343,\"mode\":96}"),
            0U)
      << stats.out;
  EXPECT_EQ(stats.err, "") << "no progress bar in a pipe";
  const Result raw = RunCommand({"stats", frame, "--raw", "--json"});
  EXPECT_EQ(JsonNumber(raw.out, "min"), 1);
  EXPECT_EQ(JsonNumber(raw.out, "average"), 3);
  EXPECT_EQ(JsonNumber(raw.out, "mode"), 2);

  const Result histogram = RunCommand({"histogram", frame, "--bins", "3", "--json"});
  EXPECT_NE(histogram.out.find("\"min\":86,\"max\":98,\"width\":4,\"counts\":[1,0,3]"),
            std::string::npos)
      << histogram.out;
  const Result inner =
      RunCommand({"histogram", frame, "--bins", "2", "--min", "96", "--max", "98", "--json"});
  EXPECT_NE(inner.out.find("\"counts\":[2,1]"), std::string::npos) << inner.out;
  const Result codes = RunCommand({"histogram", frame, "--json"});
  EXPECT_NE(codes.out.find("\"min\":85,\"max\":99,\"width\":2,\"counts\":[1,0,0,0,0,2,1]"),
            std::string::npos)
      << codes.out;

  EXPECT_EQ(RunCommand({"header", "get", frame, "OBJECT"}).out, "Crab's\n");
  EXPECT_EQ(RunCommand({"header", "get", frame, "BSCALE"}).out, "-2.0\n");
  EXPECT_EQ(RunCommand({"header", "get", frame, "NOTHING"}).code, 1);
  EXPECT_NE(RunCommand({"header", "list", frame}).out.find("NAXIS2  = 2\n"), std::string::npos);
  const Result info = RunCommand({"info", frame, "--json"});
  EXPECT_NE(info.out.find("\"observation\":{\"object\":\"Crab's\",\"observer\":\"a?[2J?m\","
                          "\"start\":\"2023-04-05 23:59:50.000 UTC\","
                          "\"end\":\"2023-04-05 00:00:10.000 UTC\",\"exposure\":\"30 s\"}"),
            std::string::npos)
      << info.out;
  EXPECT_NE(info.err.find("crosses midnight"), std::string::npos);
}

TEST_F(CommandTest, ExitCodesTellFailureFromWrongUsage) {
  const std::string frame = Path("f.fits");
  ASSERT_EQ(RunCommand({"synth", frame, "--width", "64", "--height", "48"}).code, 0);
  for (const std::vector<std::string>& good : {std::vector<std::string>{"--help"},
                                               {"stats", "--help"},
                                               {"--version"},
                                               {"memory", "status", "--json"},
                                               {"histogram", frame}}) {
    EXPECT_EQ(RunCommand(good).code, 0) << good.front();
  }
  for (const std::vector<std::string>& wrong :
       {std::vector<std::string>{},
        {"nonsense"},
        {"stats"},
        {"stats", frame, "--nonsense"},
        {"convert", frame, Path("x.fits")},
        {"convert", frame, Path("x.fits"), "--bits", "12"},
        {"convert", frame, Path("x.fits"), "--bits", "8", "--signed"},
        {"convert", frame, Path("x.png"), "--bits", "8"},
        {"preview", frame, "-o", Path("x.png"), "--min", "5", "--max", "1"},
        {"preview", frame, "-o", Path("x.png"), "--min", "5", "--level", "raw"},
        {"preview", frame, "-o", Path("x.png"), "--plane", "1"},
        {"stats", frame, "--memory", "0"},
        {"stats", frame, "--policy", "none"},
        {"stats", frame, "--memory", "1", "--block-size", "2048"},
        {"memory", "set", "MemoryRatio", "200"},
        {"memory", "get", "Nonsense"}}) {
    const Result result = RunCommand(wrong);
    EXPECT_EQ(result.code, 2) << ::testing::PrintToString(wrong) << result.err;
    EXPECT_NE(result.err, "") << ::testing::PrintToString(wrong);
  }
  for (const std::vector<std::string>& failing :
       {std::vector<std::string>{"stats", Path("missing.fits")},
        {"stats", frame, "--hdu", "3"},
        {"convert", frame, Path("no/such/folder.fits"), "--bits", "8"},
        {"synth", Path("big.fits"), "--width", "20000", "--height", "20000", "--memory", "1",
         "--disk", "2", "--swap-dir", Swap()}}) {
    const Result result = RunCommand(failing);
    EXPECT_EQ(result.code, 1) << ::testing::PrintToString(failing) << result.err;
    EXPECT_NE(result.err.find("korinimage: "), std::string::npos);
  }
  EXPECT_EQ(Names(m_folder.Path()).size(), 2U) << "frame and swap folder only";
}

// The budget is exactly what was asked for, and looking at a picture does not write
// the settings.
TEST_F(CommandTest, MemoryOptionsAndSettings) {
  const std::string status = RunCommand({"memory", "--json", "--memory", "48", "--block-size", "64",
                                         "--disk", "5", "--swap-dir", Swap()})
                                 .out;
  EXPECT_EQ(JsonNumber(status, "budget"), 48.0 * 1048576) << status;
  EXPECT_EQ(JsonNumber(status, "memory_blocks"), 768);
  EXPECT_EQ(JsonNumber(status, "disk_limit_blocks"), 80);
  EXPECT_NE(status.find("\"swap_folder\":\"" + InJson(Swap())), std::string::npos) << status;
  EXPECT_FALSE(std::filesystem::exists(Path("settings.ini")));

  EXPECT_EQ(RunCommand({"memory", "set", "MaxDiskSize", "7"}).code, 0);
  EXPECT_EQ(RunCommand({"memory", "set", "BlockSize", "128"}).code, 0);
  EXPECT_EQ(RunCommand({"memory", "set", "VMDrive", Swap()}).code, 0);
  EXPECT_EQ(RunCommand({"memory", "get", "MaxDiskSize"}).out, "7\n");
  const std::string kept = Contents(Path("settings.ini"));
  const std::string after = RunCommand({"memory", "status", "--json"}).out;
  EXPECT_EQ(JsonNumber(after, "disk_limit_blocks"), 56) << after;
  EXPECT_NE(after.find(InJson(Swap())), std::string::npos);
  EXPECT_EQ(Contents(Path("settings.ini")), kept);
  EXPECT_EQ(RunCommand({"memory", "set", "VMDrive", ""}).code, 0);
  EXPECT_EQ(RunCommand({"memory", "get", "VMDrive"}).out, "\n");
}

}  // namespace
}  // namespace korin::test
