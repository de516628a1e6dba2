#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>
#include <thread>

#include "run_process.h"

extern char** environ;

namespace korin::test {

Ended RunProcess(std::vector<std::string> words, const std::string& out, const std::string& err,
                 int interruptAfter) {
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
  int status = 0;
  rusage usage{};
  wait4(child, &status, 0, &usage);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), usage.ru_maxrss};
}

}  // namespace korin::test
