#include "command_run.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <limits>
#include <thread>

extern char** environ;

namespace korin::test {

Result RunCommand(const std::vector<std::string>& arguments, int interruptAfter) {
  const ScratchFolder folder;
  const std::string out = (folder.Path() / "out").string();
  const std::string err = (folder.Path() / "err").string();
  std::vector<std::string> words = {KORINIMAGE_COMMAND};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT, 0600);
  pid_t child = 0;
  EXPECT_EQ(posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), environ), 0);
  posix_spawn_file_actions_destroy(&actions);
  if (interruptAfter >= 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(interruptAfter));
    kill(child, SIGINT);
  }
  Result result;
  int status = 0;
  rusage usage{};
  wait4(child, &status, 0, &usage);
  result.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.peakKib = usage.ru_maxrss;
  result.out = Contents(out);
  result.err = Contents(err);
  return result;
}

double JsonNumber(const std::string& json, const std::string& key, std::size_t from) {
  const std::string label = "\"" + key + "\":";
  const std::size_t at = json.find(label, from);
  if (at == std::string::npos) return std::numeric_limits<double>::quiet_NaN();
  return std::strtod(json.c_str() + at + label.size(), nullptr);
}

}  // namespace korin::test
