#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace korin::test {

struct Result {
  int code = -1;  // exit code; 128 + signal when a signal ended it
  std::string out;
  std::string err;
  long peakKib = 0;  // peak resident memory
};

// Runs the command as its user does. With `interruptAfter` >= 0, SIGINT is sent so
// many milliseconds after the start.
Result RunCommand(const std::vector<std::string>& arguments, int interruptAfter = -1);

// A folder of its own with a settings file and a swap folder in it; teardown fails
// when a swap file is left.
class CommandTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  std::string Path(const std::string& name) const { return (m_folder / name).string(); }
  std::string Swap() const { return Path("swap"); }
  static std::vector<std::string> List(const std::filesystem::path& folder);
  static std::string ReadText(const std::string& file);

  std::filesystem::path m_folder;
};

// The number behind a key, searched from `from` on.
double JsonNumber(const std::string& json, const std::string& key, std::size_t from = 0);

}  // namespace korin::test
