#include <unistd.h>

#include <cstdlib>

#include "command_run.h"

namespace korin::test {
namespace {

// A reader that has seen enough wants no message.
TEST_F(CommandTest, FailsWhenThereIsNowhereToPrintTo) {
  const std::string frame = Path("f.fits");
  ASSERT_EQ(RunCommand({"synth", frame, "--width", "64", "--height", "48"}).code, 0);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(dup2(ends[1], 9), 9);
  for (const int end : ends) close(end);
  for (const std::string nowhere : {" >/dev/full", " >&-", " >&9"}) {
    const std::string lost =
        std::string(KORINIMAGE_COMMAND) + " info " + frame + nowhere + " 2>" + Path("err");
    EXPECT_EQ(WEXITSTATUS(std::system(lost.c_str())), 1) << nowhere;
    EXPECT_EQ(Contents(Path("err")).empty(), nowhere == " >&9") << nowhere;
  }
  close(9);
}

}  // namespace
}  // namespace korin::test
