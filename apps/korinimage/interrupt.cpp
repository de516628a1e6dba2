#include "interrupt.h"

#include <atomic>
#include <csignal>

namespace korin::app {

namespace {

std::atomic<int> g_signal{0};
static_assert(std::atomic<int>::is_always_lock_free);  // a signal handler writes it

extern "C" void NoteSignal(int signal) { g_signal.store(signal, std::memory_order_relaxed); }

void Watch(int signal) {
  // A parent that ignores a signal (nohup, a shell's background job) means it.
  if (std::signal(signal, NoteSignal) == SIG_IGN) std::signal(signal, SIG_IGN);
}

}  // namespace

void WatchForInterrupts() {
  Watch(SIGINT);
  Watch(SIGTERM);
#ifdef SIGHUP
  Watch(SIGHUP);
#endif
#ifdef SIGPIPE
  std::signal(SIGPIPE, SIG_IGN);
#endif
#ifdef SIGXFSZ
  std::signal(SIGXFSZ, SIG_IGN);
#endif
}

bool WasInterrupted() noexcept { return g_signal.load(std::memory_order_relaxed) != 0; }

void CheckInterrupt() {
  const int signal = g_signal.load(std::memory_order_relaxed);
  if (signal != 0) throw Interrupted(signal);
}

}  // namespace korin::app
