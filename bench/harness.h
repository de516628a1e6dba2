#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

// Measuring side by side with Google Benchmark. What is compared is timed in one run,
// its repetitions in random order.
namespace korin::bench {

// The 24-megapixel frame on which everything is measured.
inline constexpr std::int64_t kWidth = 6000;
inline constexpr std::int64_t kHeight = 4000;
inline constexpr std::int64_t kPixels = kWidth * kHeight;

// One contender: who does an operation on a type of pixel.
struct Contender {
  std::string who;
  std::function<void()> run;
  std::function<void()> prepare = {};      // untimed, before each run
  int repeats = 1;                         // runs within one timing, for short ones
  bool oneThread = false;                  // never uses more than one thread
  std::function<double()> elsewhere = {};  // in place of `run`: seconds another took, or < 0
};

// Contenders for one operation, each on one thread and on two. Every timing comes after
// data of no concern has been driven through the caches.
struct Contest {
  std::string operation;
  std::string type;
  std::vector<Contender> contenders = {};
  double per = 1.0;     // times are given per this many
  bool sweep = true;    // false: what stays in the caches is part of the question
  bool serial = false;  // paging and input are the calling thread's
};

// Registers each contender as operation/type/who/threads.
void Add(const Contest& contest);
// Registers operation/type/who/memory: figures of what one run adds to the resident
// memory of a process that has done nothing else. To be run alone.
using Figures = std::map<std::string, double>;
void AddMemory(const std::string& operation, const std::string& type, const std::string& who,
               std::function<Figures()> run);

// A contender that the program which drives this one times: it is asked in a line on
// standard output and answers in seconds on standard input. Without one, Add leaves it out.
Contender Driver(const std::string& who, const std::string& question);
void SetDriven();

// What is measured on: made when a measurement first wants it, outside its time.
template <typename State>
State& Shared() {
  static State state;
  return state;
}

// The most bytes that were resident at once while `run` ran.
std::int64_t PeakDuring(const std::function<void()>& run);
std::int64_t ResidentBytes();

// All of the measurements.
void AddStatistics();   // statistics, histograms and their scratch, fill on both paths
void AddConversions();  // conversion kernels and row loops, casts, copies
void AddSmallBlocks();  // what threads cost a small plane
void AddChangeBits();   // the whole conversion of an image and its memory
void AddPaging();       // misses, their bookkeeping, rows in memory
void AddBudget();       // statistics of an image larger than memory
void AddFiles();        // loading a frame from a file

}  // namespace korin::bench
