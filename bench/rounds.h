#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// Measuring side by side. Everything that is compared is timed in one run, in turns.
namespace korin::bench {

struct Options {
  int rounds = 7;
  bool quick = false;
  bool driven = false;  // a driver reads standard output and answers questions
  std::string only;     // part of an operation's name; empty: all
};
Options& TheOptions();

// One contender: who does an operation on a type of pixel.
struct Contender {
  std::string who;
  std::function<void()> run;
  std::function<void()> prepare = {};  // untimed, before each run
  int repeats = 1;                     // runs within one timing, for short ones
  bool oneThread = false;              // never uses more than one thread
};

// Contenders for one operation. Each round times every one of them once, on one
// thread and on two, after data of no concern has been driven through the caches.
struct Contest {
  std::string operation;
  std::string type;
  std::vector<Contender> contenders;
  double per = 1.0;      // times are given per this many
  bool sweep = true;     // false: what stays in the caches is part of the question
  bool serial = false;   // paging and input are the calling thread's
  int mostRounds = 100;  // for slow ones
};

bool Wanted(const std::string& operation);
// Runs the contest and prints a line for every contender and number of threads:
//   time <operation> <type> <who> <threads> <nanoseconds, median>
void Run(const Contest& contest);
// A line "fact <operation> <type> <name> <value>".
void Fact(const std::string& operation, const std::string& type, const std::string& name,
          double value);
// A time that the driver measures: it is asked in one line and answers in nanoseconds.
// Negative: it cannot.
double Ask(const std::string& question);
// A contender that the driver times; null when there is no driver or it cannot.
Contender Driver(const std::string& who, const std::string& question);

// Threads of the library and of every peer.
void SetThreads(int threads);
void SetPeerThreads(int threads);

// Highest resident memory in bytes since the last ResetPeak; 0 where the system
// does not say.
void ResetPeak();
std::int64_t PeakBytes();
std::int64_t ResidentBytes();

}  // namespace korin::bench
