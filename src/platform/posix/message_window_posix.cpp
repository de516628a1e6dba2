#include "korinimage/message_window.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <utility>

#include "platform/handle_table.h"
#include "platform/lasting.h"

// One mutex guards every window and queue of the process. It is never held while a
// procedure runs; each thread waits on a condition of its own queue.
namespace korin {

namespace {

constexpr std::size_t kMaxPosted = 10000;

struct Queue;

// A message under way from a thread that waits for its answer.
struct SentMessage {
  WindowMessage message;
  std::shared_ptr<Queue> sender;
  std::intptr_t answer = 0;
  bool done = false;
};

struct Queue {
  std::deque<WindowMessage> posted;
  std::deque<std::shared_ptr<SentMessage>> sent;
  std::deque<HWND> paints;  // each window once, in the order of asking
  std::optional<int> quit;
  std::condition_variable wake;
};

struct Window {
  WindowProcedure procedure;
  void* context;
  std::shared_ptr<Queue> owner;
};

struct Desk {
  std::mutex mutex;
  platform::HandleTable<Window> windows;

  void AtUnload() noexcept {
    const std::unique_lock lock(mutex, std::try_to_lock);
    if (lock) windows.Shrink();
  }
};

// Threads may end after the static objects of the process.
Desk& TheDesk() { return platform::Lasting<Desk>(); }

using Lock = std::unique_lock<std::mutex>;

std::uintptr_t Number(HWND window) { return reinterpret_cast<std::uintptr_t>(window); }

void Finish(SentMessage& sent, std::intptr_t answer) {
  sent.answer = answer;
  sent.done = true;
  sent.sender->wake.notify_all();
}

// Drops everything that waits for `window`. The mutex is held.
void Forget(HWND window, Queue& queue) {
  const auto isFor = [window](const WindowMessage& message) { return message.window == window; };
  queue.posted.erase(std::remove_if(queue.posted.begin(), queue.posted.end(), isFor),
                     queue.posted.end());
  queue.paints.erase(std::remove(queue.paints.begin(), queue.paints.end(), window),
                     queue.paints.end());
  for (const auto& sent : queue.sent) {
    if (isFor(sent->message)) Finish(*sent, 0);
  }
  queue.sent.erase(std::remove_if(queue.sent.begin(), queue.sent.end(),
                                  [](const auto& sent) { return sent->done; }),
                   queue.sent.end());
}

// Outlives the thread's queue: other thread-local objects may use windows while they
// are being destroyed.
thread_local bool t_ended = false;

struct ThreadQueue {
  std::shared_ptr<Queue> queue = std::make_shared<Queue>();

  ThreadQueue() = default;
  ThreadQueue(const ThreadQueue&) = delete;
  ThreadQueue& operator=(const ThreadQueue&) = delete;

  // The thread ends: its windows go, and whoever waits for it gets an answer.
  ~ThreadQueue() {
    t_ended = true;
    const Lock lock(TheDesk().mutex);
    TheDesk().windows.EraseIf([this](const Window& window) { return window.owner == queue; });
    for (const auto& sent : queue->sent) Finish(*sent, 0);
    queue->sent.clear();
  }
};

// The calling thread's queue, made at first use; null when memory is short. A thread
// that is past its end gets one that nobody can reach.
std::shared_ptr<Queue> MyQueue() noexcept try {
  if (t_ended) return std::make_shared<Queue>();
  thread_local ThreadQueue mine;
  return mine.queue;
} catch (const std::bad_alloc&) {
  return nullptr;
}

// Runs the procedure of a window of the calling thread, without the mutex. No value
// when the window is gone or another thread's.
std::optional<std::intptr_t> Run(const WindowMessage& message, const Queue& mine, Lock& lock) {
  const Window* const window = TheDesk().windows.Find(Number(message.window));
  if (window == nullptr || window->owner.get() != &mine) return std::nullopt;
  const WindowProcedure procedure = window->procedure;
  void* const context = window->context;
  lock.unlock();
  const std::intptr_t answer =
      procedure(message.window, message.message, message.wParam, message.lParam, context);
  lock.lock();
  return answer;
}

// Runs one message sent to this thread. An exception of the procedure leaves
// through here, after the sender has its answer.
void ServeOne(Queue& mine, Lock& lock) {
  const std::shared_ptr<SentMessage> sent = std::move(mine.sent.front());
  mine.sent.pop_front();
  try {
    Finish(*sent, Run(sent->message, mine, lock).value_or(0));
  } catch (...) {
    lock.lock();
    Finish(*sent, 0);
    throw;
  }
}

bool SomethingWaits(const Queue& queue) {
  return !queue.posted.empty() || !queue.sent.empty() || !queue.paints.empty() ||
         queue.quit.has_value();
}

}  // namespace

HWND CreateMessageWindow(WindowProcedure procedure, void* context) noexcept try {
  auto mine = MyQueue();
  if (procedure == nullptr || !mine || t_ended) return nullptr;
  const Lock lock(TheDesk().mutex);
  return reinterpret_cast<HWND>(TheDesk().windows.Insert({procedure, context, std::move(mine)}));
} catch (const std::bad_alloc&) {
  return nullptr;
}

bool DestroyMessageWindow(HWND window) noexcept {
  const auto mine = MyQueue();
  const Lock lock(TheDesk().mutex);
  const Window* const found = TheDesk().windows.Find(Number(window));
  if (found == nullptr || found->owner != mine) return false;
  Forget(window, *mine);
  return TheDesk().windows.Erase(Number(window));
}

std::intptr_t SendWindowMessage(HWND window, unsigned message, std::uintptr_t wParam,
                                std::intptr_t lParam) {
  const auto mine = MyQueue();
  if (!mine) return 0;
  Lock lock(TheDesk().mutex);
  const WindowMessage toSend{window, message, wParam, lParam};
  if (const auto answer = Run(toSend, *mine, lock)) return *answer;
  const Window* const found = TheDesk().windows.Find(Number(window));
  if (found == nullptr) return 0;
  const std::shared_ptr<Queue> owner = found->owner;
  std::shared_ptr<SentMessage> sent;
  try {
    sent = std::make_shared<SentMessage>(SentMessage{toSend, mine});
    owner->sent.push_back(sent);
  } catch (const std::bad_alloc&) {
    return 0;
  }
  owner->wake.notify_all();

  // The receiver may be sending to this thread: serve it, or both wait for ever. An
  // exception of an own procedure takes the message back first, and where it is being
  // handled already, waits: its parameters may point into the caller's frame.
  std::exception_ptr thrown;
  while (!sent->done) {
    if (mine->sent.empty()) {
      mine->wake.wait(lock);
      continue;
    }
    try {
      ServeOne(*mine, lock);
    } catch (...) {
      thrown = std::current_exception();
      const auto waiting = std::find(owner->sent.begin(), owner->sent.end(), sent);
      if (waiting != owner->sent.end()) {
        owner->sent.erase(waiting);
        sent->done = true;
      }
    }
  }
  if (thrown) std::rethrow_exception(thrown);
  return sent->answer;
}

bool PostWindowMessage(HWND window, unsigned message, std::uintptr_t wParam,
                       std::intptr_t lParam) noexcept try {
  if (message == kMessagePaint) return InvalidateMessageWindow(window);
  const Lock lock(TheDesk().mutex);
  const Window* const found = TheDesk().windows.Find(Number(window));
  if (found == nullptr || found->owner->posted.size() >= kMaxPosted) return false;
  found->owner->posted.push_back({window, message, wParam, lParam});
  found->owner->wake.notify_all();
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

bool InvalidateMessageWindow(HWND window) noexcept try {
  const Lock lock(TheDesk().mutex);
  const Window* const found = TheDesk().windows.Find(Number(window));
  if (found == nullptr) return false;
  auto& paints = found->owner->paints;
  if (std::find(paints.begin(), paints.end(), window) == paints.end()) {
    paints.push_back(window);
    found->owner->wake.notify_all();
  }
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

bool PeekWindowMessage(WindowMessage* message, unsigned first, unsigned last, bool remove) {
  const auto mine = MyQueue();
  if (!mine) return false;
  Lock lock(TheDesk().mutex);
  while (!mine->sent.empty()) ServeOne(*mine, lock);

  const auto inRange = [first, last](unsigned number) {
    return (first == 0 && last == 0) || (first <= number && number <= last);
  };
  const auto posted = std::find_if(mine->posted.begin(), mine->posted.end(),
                                   [&](const WindowMessage& m) { return inRange(m.message); });
  if (posted != mine->posted.end()) {
    *message = *posted;
    if (remove) mine->posted.erase(posted);
    return true;
  }
  if (mine->quit) {
    *message = {nullptr, kMessageQuit,
                static_cast<std::uintptr_t>(static_cast<std::intptr_t>(*mine->quit)), 0};
    if (remove) mine->quit.reset();
    return true;
  }
  if (!mine->paints.empty() && inRange(kMessagePaint)) {
    *message = {mine->paints.front(), kMessagePaint, 0, 0};
    if (remove) mine->paints.pop_front();
    return true;
  }
  return false;
}

std::intptr_t DispatchWindowMessage(const WindowMessage& message) {
  const auto mine = MyQueue();
  if (!mine) return 0;
  Lock lock(TheDesk().mutex);
  return Run(message, *mine, lock).value_or(0);
}

void PostQuit(int exitCode) noexcept {
  const auto mine = MyQueue();
  if (!mine) return;
  const Lock lock(TheDesk().mutex);
  mine->quit = exitCode;
}

std::int64_t QueuedMessageCount() noexcept {
  const auto mine = MyQueue();
  if (!mine) return 0;
  const Lock lock(TheDesk().mutex);
  return static_cast<std::int64_t>(mine->posted.size());
}

bool WaitForWindowMessage(std::int64_t milliseconds) noexcept {
  const auto mine = MyQueue();
  if (!mine) return false;
  Lock lock(TheDesk().mutex);
  const auto waits = [&] { return SomethingWaits(*mine); };
  if (milliseconds < 0) {
    mine->wake.wait(lock, waits);
    return true;
  }
  // A century is no limit either, and does not overflow the clock.
  constexpr std::int64_t century = 3'000'000'000'000;
  return mine->wake.wait_for(lock, std::chrono::milliseconds(std::min(milliseconds, century)),
                             waits);
}

}  // namespace korin
