// Loads a plug-in that uses the library, runs kernels through it and unloads both,
// ten times. Nothing may hang, and in the end neither threads, the library nor memory
// may be left behind.
//   load_unload PLUGIN LIBRARY-FILE-NAME

#include <cstdio>

#include "load_unload/dynamic_library.h"

using namespace korin::test;

namespace {

constexpr int kRounds = 10;
constexpr int kPatience = 30'000;            // milliseconds
constexpr int kFirstRounds = 5;              // what the system keeps of a library, it keeps once
constexpr std::int64_t kMostKept = 1 << 20;  // by the system's own heap, mapped
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

// Threads that sleep between operations may take a moment to go. Milliseconds.
int WaitForEnd(const char* library, int threadsBefore) {
  int waited = 0;
  while ((IsLibraryLoaded(library) || CountThreads() > threadsBefore) && waited < kPatience) {
    WaitMilliseconds(50);
    waited += 50;
  }
  return waited;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const int threadsBefore = CountThreads();
  int mostThreads = 0;
  int waited = 0;
  std::int64_t heapBefore = 0;
  std::int64_t mappedBefore = 0;
  for (int round = 0; round < kRounds; ++round) {
    if (!Round(argv[1])) {
      std::printf("round %d failed\n", round);
      return 1;
    }
    if (CountThreads() > mostThreads) mostThreads = CountThreads();
    // First one upon the other, then each after the end of the one before.
    if (round + 1 < kFirstRounds) continue;
    waited += WaitForEnd(argv[2], threadsBefore);
    if (round + 1 > kFirstRounds) continue;
    heapBefore = HeapBytes();
    mappedBefore = MappedBytes();
  }
  const std::int64_t heap = HeapBytes() - heapBefore;
  const std::int64_t mapped = MappedBytes() - mappedBefore;
  std::printf("threads: %d before, at most %d between, %d after %d ms; the library is %s\n",
              threadsBefore, mostThreads, CountThreads(), waited,
              IsLibraryLoaded(argv[2]) ? "still loaded" : "gone");
  std::printf("left behind in %d rounds: %lld bytes of the heap, %lld bytes mapped\n",
              kRounds - kFirstRounds, static_cast<long long>(heap), static_cast<long long>(mapped));
  const bool gone = CountThreads() <= threadsBefore && !IsLibraryLoaded(argv[2]);
  return gone && heap <= kRuntimeKeeps * (kRounds - kFirstRounds) && mapped <= kMostKept ? 0 : 1;
}
