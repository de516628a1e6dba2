#include "rounds.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>

#include "kernels/parallel.h"

namespace korin::bench {

namespace {

using Clock = std::chrono::steady_clock;

// More than the caches hold.
constexpr std::size_t kSweepBytes = 128u << 20;

void SweepCaches() {
  static std::vector<std::uint64_t> bytes(kSweepBytes / sizeof(std::uint64_t));
  for (std::uint64_t& word : bytes) ++word;
}

double Time(const Contender& contender, bool sweep) {
  if (contender.prepare) contender.prepare();
  if (sweep) SweepCaches();
  const auto start = Clock::now();
  for (int i = 0; i < contender.repeats; ++i) contender.run();
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count() / contender.repeats;
}

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

std::int64_t StatusBytes(const char* field) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(field, 0) == 0) return 1024 * std::atoll(line.c_str() + std::strlen(field));
  }
  return 0;
}

// What the driver timed last; a contender of the driver's "runs" by asking.
double g_driven = -1.0;

}  // namespace

Options& TheOptions() {
  static Options options;
  return options;
}

bool Wanted(const std::string& operation) {
  return operation.find(TheOptions().only) != std::string::npos;
}

void Run(const Contest& contest) {
  if (!Wanted(contest.operation)) return;
  const std::vector<int> threadCounts = contest.serial ? std::vector{1} : std::vector{1, 2};
  const int rounds = std::min(TheOptions().rounds, contest.mostRounds);
  std::vector<std::vector<std::vector<double>>> times(
      threadCounts.size(), std::vector<std::vector<double>>(contest.contenders.size()));
  for (int round = -1; round < rounds; ++round) {  // the first one warms up
    for (std::size_t t = 0; t < threadCounts.size(); ++t) {
      SetThreads(threadCounts[t]);
      for (std::size_t i = 0; i < contest.contenders.size(); ++i) {
        const Contender& contender = contest.contenders[i];
        if (contender.oneThread && threadCounts[t] != threadCounts[0]) continue;
        g_driven = -1.0;
        double time = Time(contender, contest.sweep);
        if (g_driven >= 0.0) time = g_driven;
        if (round >= 0) times[t][i].push_back(time / contest.per);
      }
    }
  }
  for (std::size_t t = 0; t < threadCounts.size(); ++t) {
    for (std::size_t i = 0; i < contest.contenders.size(); ++i) {
      const auto& measured = contest.contenders[i].oneThread ? times[0][i] : times[t][i];
      std::printf("time %s %s %s %d %.1f\n", contest.operation.c_str(), contest.type.c_str(),
                  contest.contenders[i].who.c_str(), threadCounts[t], Median(measured));
    }
  }
  std::fflush(stdout);
}

void Fact(const std::string& operation, const std::string& type, const std::string& name,
          double value) {
  std::printf("fact %s %s %s %.4f\n", operation.c_str(), type.c_str(), name.c_str(), value);
  std::fflush(stdout);
}

double Ask(const std::string& question) {
  if (!TheOptions().driven) return -1.0;
  std::printf("ask %s\n", question.c_str());
  std::fflush(stdout);
  double answer = -1.0;
  std::cin >> answer;
  return answer;
}

Contender Driver(const std::string& who, const std::string& question) {
  if (Ask("can " + question) < 0.0) return {};
  return {.who = who, .run = [question] { g_driven = Ask(question); }, .oneThread = true};
}

void SetThreads(int threads) {
  if (GetThreadCount() != threads) {
    SetThreadCount(threads);
    ParallelFor(64, [](std::int64_t) {});  // starts the pool
  }
  SetPeerThreads(threads);
}

void ResetPeak() { std::ofstream("/proc/self/clear_refs") << "5"; }
std::int64_t PeakBytes() { return StatusBytes("VmHWM:"); }
std::int64_t ResidentBytes() { return StatusBytes("VmRSS:"); }

}  // namespace korin::bench
