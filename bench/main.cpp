// Whole-image operations and paging beside what other libraries and the memory itself
// need for the same work. Takes Google Benchmark's options, and
//   --driven   a driver reads standard output and answers questions
// ratios.py runs it, one contest to a process, and makes a table of the results.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "harness.h"

int main(int count, char** arguments) {
  using namespace korin::bench;
  // Options that come later win.
  std::string defaults[] = {"--benchmark_enable_random_interleaving=true",
                            "--benchmark_repetitions=7"};
  std::vector<char*> all{arguments[0], defaults[0].data(), defaults[1].data()};
  for (int i = 1; i < count; ++i) {
    if (std::strcmp(arguments[i], "--driven") == 0) {
      SetDriven();
    } else {
      all.push_back(arguments[i]);
    }
  }
  AddStatistics();
  AddConversions();
  AddChangeBits();
  AddSmallBlocks();
  AddPaging();
  AddBudget();
  AddFiles();
  int left = static_cast<int>(all.size());
  benchmark::Initialize(&left, all.data());
  if (benchmark::ReportUnrecognizedArguments(left, all.data())) return 1;
  benchmark::RunSpecifiedBenchmarks();
}
