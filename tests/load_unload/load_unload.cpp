// Loads a plug-in that uses the library, runs kernels through it and unloads both,
// ten times. Nothing may hang, and in the end neither threads nor the library may be
// left behind.
//   load_unload PLUGIN LIBRARY-FILE-NAME

#include <cstdio>

#include "load_unload/dynamic_library.h"

using namespace korin::test;

namespace {

constexpr int kRounds = 10;
constexpr int kPatience = 30'000;  // milliseconds
constexpr double kExpected = 2.0 * 1234.0;

bool Round(const char* plugin) {
  void* const library = LoadLibraryAt(plugin);
  if (library == nullptr) return false;
  using Run = double (*)();
  const auto run = reinterpret_cast<Run>(FindSymbol(library, "RunKernels"));
  const double result = run == nullptr ? -2.0 : run();
  if (result != kExpected) std::printf("the kernels answer %.17g\n", result);
  return UnloadLibrary(library) && result == kExpected;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const int threadsBefore = CountThreads();
  int mostThreads = 0;
  for (int round = 0; round < kRounds; ++round) {
    if (!Round(argv[1])) {
      std::printf("round %d failed\n", round);
      return 1;
    }
    if (CountThreads() > mostThreads) mostThreads = CountThreads();
  }
  // Threads that sleep between operations may take a moment to go.
  int waited = 0;
  while ((IsLibraryLoaded(argv[2]) || CountThreads() > threadsBefore) && waited < kPatience) {
    WaitMilliseconds(50);
    waited += 50;
  }
  std::printf("threads: %d before, at most %d between, %d after %d ms; the library is %s\n",
              threadsBefore, mostThreads, CountThreads(), waited,
              IsLibraryLoaded(argv[2]) ? "still loaded" : "gone");
  return CountThreads() <= threadsBefore && !IsLibraryLoaded(argv[2]) ? 0 : 1;
}
