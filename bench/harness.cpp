#include "harness.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>

#include "kernels/parallel.h"
#include "peers.h"

namespace korin::bench {

namespace {

using Clock = std::chrono::steady_clock;

// More than the caches hold.
constexpr std::size_t kSweepBytes = 128u << 20;

bool g_driven = false;

void SweepCaches() {
  static std::vector<std::uint64_t> bytes(kSweepBytes / sizeof(std::uint64_t));
  for (std::uint64_t& word : bytes) ++word;
}

// Of the library and of every peer; pools are there afterwards.
void SetThreads(int threads) {
  SetThreadCount(threads);
  ParallelFor(64, [](std::int64_t) {});
  SetOpenCvThreads(threads);
  SetVipsThreads(threads);
}

double Seconds(const Contender& contender, bool sweep) {
  if (contender.elsewhere) return contender.elsewhere();
  if (contender.prepare) contender.prepare();
  if (sweep) SweepCaches();
  const auto start = Clock::now();
  for (int i = 0; i < contender.repeats; ++i) contender.run();
  return std::chrono::duration<double>(Clock::now() - start).count() / contender.repeats;
}

double Ask(const std::string& question) {
  std::cout << "ask " << question << std::endl;
  double seconds = -1.0;
  std::cin >> seconds;
  return seconds;
}

std::int64_t StatusBytes(const char* field) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(field, 0) == 0) return 1024 * std::atoll(line.c_str() + std::strlen(field));
  }
  return 0;
}

// One timing per repetition: what lies between two of them is part of the method.
auto* Register(const std::string& name, std::function<void(benchmark::State&)> body) {
  return benchmark::RegisterBenchmark(name.c_str(), std::move(body))
      ->Iterations(1)
      ->UseManualTime();
}

}  // namespace

void Add(const Contest& contest) {
  for (const Contender& contender : contest.contenders) {
    if (contender.elsewhere && !g_driven) continue;
    for (int threads = 1; threads <= (contest.serial || contender.oneThread ? 1 : 2); ++threads) {
      const std::string name = contest.operation + "/" + contest.type + "/" + contender.who + "/";
      const auto body = [=, per = contest.per, sweep = contest.sweep,
                         warm = false](benchmark::State& state) mutable {
        for (auto _ : state) {
          SetThreads(threads);
          if (!warm) (void)Seconds(contender, false);
          warm = true;
          const double seconds = Seconds(contender, sweep);
          if (seconds < 0.0) return state.SkipWithError("nobody to ask");
          state.SetIterationTime(seconds / per);
        }
      };
      Register(name + std::to_string(threads), body);
    }
  }
}

void AddMemory(const std::string& operation, const std::string& type, const std::string& who,
               std::function<Figures()> run) {
  const auto body = [run = std::move(run)](benchmark::State& state) {
    for (auto _ : state) {
      SetThreads(2);
      for (const auto& [name, value] : run()) state.counters[name] = value;
      state.SetIterationTime(0.0);
    }
  };
  Register(operation + "/" + type + "/" + who + "/memory", body)->Repetitions(1);
}

Contender Driver(const std::string& who, const std::string& question) {
  Contender contender{.who = who, .run = {}, .oneThread = true};
  contender.elsewhere = [question] { return Ask(question); };
  return contender;
}

void SetDriven() { g_driven = true; }

std::int64_t PeakDuring(const std::function<void()>& run) {
  std::ofstream("/proc/self/clear_refs") << "5";
  run();
  return StatusBytes("VmHWM:");
}

std::int64_t ResidentBytes() { return StatusBytes("VmRSS:"); }

}  // namespace korin::bench
