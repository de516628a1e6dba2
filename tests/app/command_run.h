#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/scoped_variable.h"
#include "support/system.h"
#include "support/temporary_folder.h"

namespace korin::test {

struct Result {
  int code = -1;  // exit code; 128 + signal when a signal ended it
  std::string out;
  std::string err;
  long peakKib = 0;  // peak resident memory; 0: not known
};

// Runs the command as its user does. With `interruptAfter` >= 0, SIGINT is sent so
// many milliseconds after the start, where the system has it.
Result RunCommand(const std::vector<std::string>& arguments, int interruptAfter = -1);

// A folder of its own with a settings file and a swap folder in it; the test fails
// when a swap file is left.
class CommandTest : public ::testing::Test {
 protected:
  CommandTest() { std::filesystem::create_directory(Swap()); }
  ~CommandTest() override { EXPECT_TRUE(Names(Swap()).empty()) << "a swap file was left"; }

  std::string Path(const std::string& name) const { return (m_folder.Path() / name).string(); }
  std::string Swap() const { return Path("swap"); }

  const ScratchFolder m_folder;
  const ScopedVariable m_settings{"KORINIMAGE_CONFIG", Path("settings.ini").c_str()};
};

// A text as it stands between quotes in JSON.
std::string InJson(const std::string& text);

// The number behind a key, searched from `from` on.
double JsonNumber(const std::string& json, const std::string& key, std::size_t from = 0);

}  // namespace korin::test
