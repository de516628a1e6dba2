#include "kernels/parallel.h"

#include <HalideRuntime.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <limits>
#include <mutex>
#include <thread>
#include <vector>

#include "kernels/runtime_setup.h"
#include "platform/keeper.h"

#if defined(__SANITIZE_THREAD__)
#define KORIN_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KORIN_THREAD_SANITIZER 1
#endif
#endif

namespace korin {
namespace {

// The pool's own limit.
constexpr int kMostThreads = 256;

int DefaultThreadCount() {
  const char* text = std::getenv("HL_NUM_THREADS");
  if (text == nullptr) text = std::getenv("HL_NUMTHREADS");
  const int wanted =
      text != nullptr ? std::atoi(text) : static_cast<int>(std::thread::hardware_concurrency());
  return std::clamp(wanted, 1, kMostThreads);
}

std::atomic<int> g_threads{0};

#if defined(KORIN_THREAD_SANITIZER)
// The pool is not instrumented; threads of the standard library let the sanitizer
// see who waits for whom.
int RunOnPool(void* userContext, halide_task_t task, int first, int count, std::uint8_t* closure) {
  std::atomic<int> next{first};
  std::atomic<int> result{0};
  const auto work = [&] {
    for (int i = next++; i < first + count; i = next++) {
      const int code = task(userContext, i, closure);
      if (code != 0) result = code;
    }
  };
  std::vector<std::thread> threads;
  for (int t = 1; t < std::min(g_threads.load(), count); ++t) threads.emplace_back(work);
  work();
  for (std::thread& thread : threads) thread.join();
  return result;
}
#else
constexpr halide_do_par_for_t RunOnPool = halide_default_do_par_for;
#endif

// The pool may be ended only while no loop runs on it. `kEnding` stands in place of
// their number meanwhile.
constexpr int kEnding = -1;
std::atomic<int> g_loopsInPool{0};
std::atomic<unsigned> g_loopsBegun{0};
std::atomic<bool> g_keeperAsked{false};
std::atomic<int> g_forks{0};  // about to happen: loops keep to their own thread

bool TryEndPool() {
  int none = 0;
  if (!g_loopsInPool.compare_exchange_strong(none, kEnding)) return false;
  halide_shutdown_thread_pool();
  return true;
}

// Ends the pool when it has been idle for a while.
void KeepPool() {
  for (;;) {
    const unsigned seen = g_loopsBegun;
    std::this_thread::sleep_for(std::chrono::seconds(1));
    if (g_loopsBegun == seen && TryEndPool()) break;
  }
  g_keeperAsked = false;
  g_loopsInPool = 0;
}

// A child that took over a pool whose threads are not there could not even end it.
void BeforeFork() {
  ++g_forks;
  while (!TryEndPool()) std::this_thread::yield();
}
void AfterFork() {
  g_loopsInPool = 0;
  --g_forks;
}

// False while the pool is being ended.
bool EnterPool() {
  if (g_forks > 0) return false;
  int loops = g_loopsInPool;
  do {
    if (loops == kEnding) return false;
  } while (!g_loopsInPool.compare_exchange_weak(loops, loops + 1));
  ++g_loopsBegun;
  if (!g_keeperAsked.exchange(true)) platform::StartKeeper(KeepPool);
  return true;
}

// A loop of one step, or with one thread to run on, never sees the pool: its
// queue and its sleeping threads cost more than a small buffer's work.
int RunLoop(void* userContext, halide_task_t task, int first, int count, std::uint8_t* closure) {
  if (count > 1 && g_threads.load(std::memory_order_relaxed) > 1 && EnterPool()) {
    const int code = RunOnPool(userContext, task, first, count, closure);
    --g_loopsInPool;
    return code;
  }
  for (int i = first; i < first + count; ++i) {
    if (const int code = task(userContext, i, closure); code != 0) return code;
  }
  return 0;
}

struct Loop {
  std::int64_t first;
  detail::LoopBody body;
  void* context;
  std::atomic<bool> failed{false};
  std::mutex mutex{};
  std::exception_ptr exception{};
};

int RunStep(void*, int index, std::uint8_t* closure) {
  auto& loop = *reinterpret_cast<Loop*>(closure);
  if (loop.failed.load(std::memory_order_relaxed)) return 0;
  try {
    loop.body(loop.context, loop.first + index);
  } catch (...) {
    const std::lock_guard lock(loop.mutex);
    if (!loop.exception) loop.exception = std::current_exception();
    loop.failed = true;
  }
  return 0;
}

}  // namespace

namespace detail {

void RunParallel(std::int64_t count, LoopBody body, void* context) {
  if (count <= 1) {
    if (count == 1) body(context, 0);
    return;
  }
  EnsureKernelRuntime();
  Loop loop{0, body, context};
  while (loop.first < count && !loop.failed) {
    const std::int64_t steps =
        std::min<std::int64_t>(count - loop.first, std::numeric_limits<int>::max());
    halide_do_par_for(nullptr, RunStep, 0, static_cast<int>(steps),
                      reinterpret_cast<std::uint8_t*>(&loop));
    loop.first += steps;
  }
  if (loop.exception) std::rethrow_exception(loop.exception);
}

}  // namespace detail

void PrepareParallelLoops() {
  if (g_threads == 0) g_threads = DefaultThreadCount();
  halide_set_num_threads(g_threads);
  halide_set_custom_do_par_for(RunLoop);
  platform::AroundForks(BeforeFork, AfterFork);
}

void SetThreadCount(int threads) {
  EnsureKernelRuntime();
  const int wanted = threads > 0 ? std::min(threads, kMostThreads) : DefaultThreadCount();
  if (wanted == g_threads) return;
  // A pool that runs never shrinks: the next loop starts a new one.
  while (!TryEndPool()) std::this_thread::yield();
  halide_set_num_threads(wanted);
  g_threads = wanted;
  g_loopsInPool = 0;
}

int GetThreadCount() {
  EnsureKernelRuntime();
  return g_threads.load(std::memory_order_relaxed);
}

}  // namespace korin
