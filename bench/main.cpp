// Whole-image operations and paging beside what other libraries and the memory itself
// need for the same work. Prints lines for ratios.py.
//   korin_bench [--quick] [--driven] [part of an operation's name]
#include <cstdio>
#include <string>

#include "benches.h"
#include "peers.h"

namespace korin::bench {

void SetPeerThreads(int threads) {
  SetOpenCvThreads(threads);
  SetVipsThreads(threads);
}

}  // namespace korin::bench

int main(int count, char** arguments) {
  using namespace korin::bench;
  for (int i = 1; i < count; ++i) {
    const std::string argument = arguments[i];
    if (argument == "--quick") {
      TheOptions().quick = true;
      TheOptions().rounds = 3;
    } else if (argument == "--driven") {
      TheOptions().driven = true;
    } else {
      TheOptions().only = argument;
    }
  }
  BenchChangeBits();  // first: memory that others leave to be used again would hide its own
  BenchPaging();
  BenchBudget();
  BenchSmallBlocks();
  BenchConversions();
  BenchStatistics();
}
