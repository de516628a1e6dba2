#include "command_run.h"

namespace korin::test {
namespace {

// Ctrl-C at many moments: the command ends with 130 or had already finished, and
// leaves no swap file (see the teardown), no half-written file and no old one hurt.
TEST_F(CommandTest, InterruptLeavesNothing) {
  if (kWindows) GTEST_SKIP() << "only a console can interrupt, and there is none";
  const std::string frame = Path("frame.fits");
  ASSERT_EQ(RunCommand({"synth", frame, "--width", "4000", "--height", "4000"}).code, 0);
  const auto size = std::filesystem::file_size(frame);
  int interrupted = 0;
  for (int delay = 20; delay < 900; delay += 140) {
    const std::vector<std::vector<std::string>> commands = {
        {"synth", Path("out.fits"), "--width", "4000", "--height", "4000"},
        {"convert", frame, Path("out.fits"), "--bits", "-64"},
        {"preview", frame, "-o", Path("out.png")},
        {"stats", frame}};
    for (auto command : commands) {
      const std::string name = command.front();
      for (const std::string word : {"--memory", "4", "--block-size", "64", "--swap-dir"}) {
        command.push_back(word);
      }
      command.push_back(Swap());
      const Result result = RunCommand(command, delay);
      ASSERT_TRUE(result.code == 130 || result.code == 0) << name << ' ' << result.code;
      if (result.code == 130) {
        ++interrupted;
        EXPECT_EQ(Names(m_folder.Path()).size(), 2U) << name << " left a file";  // frame and swap
      }
      EXPECT_TRUE(Names(Swap()).empty()) << name;
      std::filesystem::remove(Path("out.fits"));
      std::filesystem::remove(Path("out.png"));
    }
  }
  EXPECT_GT(interrupted, 4);
  EXPECT_EQ(std::filesystem::file_size(frame), size);
}

}  // namespace
}  // namespace korin::test
