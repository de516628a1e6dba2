#pragma once

#include <string>
#include <vector>

namespace korin::test {

struct Ended {
  int code = -1;     // exit code; 128 + signal when a signal ended it
  long peakKib = 0;  // peak resident memory; 0: not known
};

// Runs a program, its output in the two files. With `interruptAfter` >= 0, SIGINT is
// sent so many milliseconds after the start, where the system has it.
Ended RunProcess(std::vector<std::string> words, const std::string& out, const std::string& err,
                 int interruptAfter);

}  // namespace korin::test
