#include "korinimage/message_window.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <limits>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "progress/test_window.h"
#include "support/system.h"

namespace korin::test {
namespace {

constexpr unsigned kFirst = 0x400;

using MessageWindow = WindowTest;

// A thread that owns one window and looks at its messages until `stop` is sent.
class Owner {
 public:
  static constexpr unsigned kStop = kFirst + 99;

  explicit Owner(TestWindow::Handler handler = nullptr) {
    std::promise<HWND> made;
    auto future = made.get_future();
    m_thread = std::thread([this, handler, &made] {
      bool stop = false;
      TestWindow window([&](const Received& r) {
        stop = r.message == kStop;
        return handler && !stop ? handler(r) : std::intptr_t{0};
      });
      made.set_value(window.handle);
      while (!stop) {
        WaitForWindowMessage(-1);
        WindowMessage message;
        try {
          while (PeekWindowMessage(&message, 0, 0, true)) DispatchWindowMessage(message);
        } catch (const std::runtime_error&) {
          ++thrown;
        }
      }
      EXPECT_FALSE(window.foreignThread);
      log = window.log;
    });
    handle = future.get();
  }
  ~Owner() { Stop(); }
  void Stop() {
    if (!m_thread.joinable()) return;
    SendWindowMessage(handle, kStop, 0, 0);
    m_thread.join();
  }

  HWND handle = nullptr;
  Log log;  // after Stop
  int thrown = 0;

 private:
  std::thread m_thread;
};

TEST_F(MessageWindow, SendRunsTheProcedureAtOnce) {
  TestWindow window([](const Received& r) { return r.lParam + 1; });
  ASSERT_NE(window.handle, nullptr);
  EXPECT_EQ(SendWindowMessage(window.handle, kFirst, ~std::uintptr_t{0}, -5), -4);
  EXPECT_EQ(window.log, (Log{{kFirst, ~std::uintptr_t{0}, -5}}));
  EXPECT_EQ(CreateMessageWindow(nullptr, nullptr), nullptr);
}

TEST_F(MessageWindow, QueueKeepsOrderAndFiltersByRange) {
  TestWindow window([](const Received& r) { return static_cast<std::intptr_t>(r.wParam) * 2; });
  for (const unsigned number : {3U, 1U, 2U, 1U}) {
    ASSERT_TRUE(PostWindowMessage(window.handle, kFirst + number, number, 0));
  }
  EXPECT_TRUE(window.log.empty());
  EXPECT_EQ(QueuedMessageCount(), kWindows ? 10'000 : 4);
  WindowMessage message;
  EXPECT_FALSE(PeekWindowMessage(&message, kFirst + 4, kFirst + 9, true));
  ASSERT_TRUE(PeekWindowMessage(&message, kFirst + 1, kFirst + 2, false));
  EXPECT_EQ(message.message, kFirst + 1);
  EXPECT_EQ(message.window, window.handle);
  ASSERT_TRUE(PeekWindowMessage(&message, kFirst + 1, kFirst + 2, true));
  EXPECT_EQ(DispatchWindowMessage(message), 2);
  EXPECT_EQ(TakeAll(), (Log{{kFirst + 3, 3, 0}, {kFirst + 2, 2, 0}, {kFirst + 1, 1, 0}}));
}

TEST_F(MessageWindow, QueueIsLimited) {
  if (kWindows) GTEST_SKIP() << "the limit is the system's, and Wine has none";
  TestWindow window;
  for (int i = 0; i < 10'000; ++i) ASSERT_TRUE(PostWindowMessage(window.handle, kFirst, 0, 0));
  EXPECT_FALSE(PostWindowMessage(window.handle, kFirst, 0, 0));
  WindowMessage message;
  PeekWindowMessage(&message, 0, 0, true);
  EXPECT_TRUE(PostWindowMessage(window.handle, kFirst, 0, 0));
}

TEST_F(MessageWindow, QuitComesInAnyRangeBeforePaint) {
  TestWindow window;
  InvalidateMessageWindow(window.handle);
  PostQuit(1);
  PostQuit(-7);
  PostWindowMessage(window.handle, kFirst, 0, 0);
  WindowMessage message;
  ASSERT_TRUE(PeekWindowMessage(&message, kFirst, kFirst, true));
  EXPECT_EQ(message.message, kFirst);
  ASSERT_TRUE(PeekWindowMessage(&message, kFirst, kFirst, false));
  ASSERT_TRUE(PeekWindowMessage(&message, kFirst, kFirst, true));
  EXPECT_EQ(message.message, kMessageQuit);
  EXPECT_EQ(static_cast<int>(message.wParam), -7);
  EXPECT_EQ(DispatchWindowMessage(message), 0);
  EXPECT_EQ(TakeAll(), (Log{{kMessagePaint, 0, 0}}));
}

TEST_F(MessageWindow, PaintWaitsOncePerWindow) {
  TestWindow a;
  TestWindow b;
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(InvalidateMessageWindow(a.handle));
    EXPECT_TRUE(PostWindowMessage(b.handle, kMessagePaint, 0, 0));
  }
  EXPECT_EQ(QueuedMessageCount(), kWindows ? 10'000 : 0);
  EXPECT_EQ(TakeAll().size(), 2U);
  EXPECT_TRUE(TakeAll().empty());
}

TEST_F(MessageWindow, DeadHandlesAnswerNothing) {
  auto window = std::make_unique<TestWindow>();
  const HWND dead = window->handle;
  PostWindowMessage(dead, kFirst, 0, 0);
  InvalidateMessageWindow(dead);
  WindowMessage message;
  PeekWindowMessage(&message, 0, 0, false);
  window.reset();
  EXPECT_TRUE(TakeAll().empty()) << "queued messages go with the window";

  std::vector<std::unique_ptr<TestWindow>> later;
  for (int i = 0; i < 200; ++i) later.push_back(std::make_unique<TestWindow>());
  int local = 0;
  for (const HWND handle : {dead, HWND{nullptr}, reinterpret_cast<HWND>(&local)}) {
    EXPECT_EQ(SendWindowMessage(handle, kFirst, 0, 0), 0);
    EXPECT_FALSE(PostWindowMessage(handle, kFirst, 0, 0));
    EXPECT_FALSE(InvalidateMessageWindow(handle));
    EXPECT_FALSE(DestroyMessageWindow(handle));
  }
  EXPECT_EQ(DispatchWindowMessage(message), 0);
  for (const auto& one : later) EXPECT_TRUE(one->log.empty());
}

TEST_F(MessageWindow, SendToAnotherThreadRunsThere) {
  Owner owner([](const Received& r) { return r.lParam * 2; });
  for (int i = 0; i < 200; ++i) ASSERT_EQ(SendWindowMessage(owner.handle, kFirst, 0, i), 2 * i);
  EXPECT_FALSE(DestroyMessageWindow(owner.handle)) << "not the owner";
  EXPECT_EQ(DispatchWindowMessage({owner.handle, kFirst, 0, 0}), 0) << "not the owner";
  owner.Stop();
  EXPECT_EQ(owner.log.size(), 201U);
  EXPECT_EQ(SendWindowMessage(owner.handle, kFirst, 0, 1), 0) << "the thread is gone";
}

// Each handler sends back to the thread that waits for it, several levels deep.
TEST_F(MessageWindow, ThreadsThatSendToEachOtherDoNotHang) {
  HWND mine = nullptr;
  HWND theirs = nullptr;
  TestWindow window([&](const Received& r) {
    return r.lParam == 0 ? 0 : 1 + SendWindowMessage(theirs, kFirst, 0, r.lParam - 1);
  });
  mine = window.handle;
  Owner owner([&](const Received& r) {
    return r.lParam == 0 ? 0 : 1 + SendWindowMessage(mine, kFirst, 0, r.lParam - 1);
  });
  theirs = owner.handle;
  for (int i = 0; i < 50; ++i) ASSERT_EQ(SendWindowMessage(theirs, kFirst, 0, 9), 9);
  EXPECT_FALSE(window.foreignThread);
}

// A receiver that goes away while messages wait for it lets the senders go.
TEST_F(MessageWindow, WaitingSendersAreReleased) {
  for (const bool destroy : {true, false}) {
    std::promise<HWND> made;
    auto future = made.get_future();
    std::promise<void> end;
    std::thread owner([&] {
      const HWND window = CreateMessageWindow(
          [](HWND, unsigned, std::uintptr_t, std::intptr_t, void*) { return std::intptr_t{5}; },
          nullptr);
      made.set_value(window);
      WaitForWindowMessage(-1);  // a message was sent; it is never looked at
      if (destroy) DestroyMessageWindow(window);
      if (destroy) end.get_future().wait();
    });
    EXPECT_EQ(SendWindowMessage(future.get(), kFirst, 0, 0), 0);
    end.set_value();
    owner.join();
  }
}

TEST_F(MessageWindow, ExceptionsReachTheThreadThatRanTheProcedure) {
  Owner owner([](const Received&) -> std::intptr_t { throw std::runtime_error("handler"); });
  EXPECT_EQ(SendWindowMessage(owner.handle, kFirst, 0, 0), 0);
  owner.Stop();
  EXPECT_EQ(owner.thrown, 1);

  TestWindow own([](const Received&) -> std::intptr_t { throw std::runtime_error("own"); });
  EXPECT_THROW(SendWindowMessage(own.handle, kFirst, 0, 0), std::runtime_error);

  // Thrown by a procedure that runs while its thread waits for an answer: the call
  // ends only when nobody can still look at its parameters.
  const HWND mine = own.handle;
  Owner sender([mine](const Received& r) {
    SendWindowMessage(mine, kFirst, 0, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return ++*reinterpret_cast<std::intptr_t*>(r.lParam);
  });
  std::intptr_t counter = 0;
  EXPECT_THROW(
      SendWindowMessage(sender.handle, kFirst, 0, reinterpret_cast<std::intptr_t>(&counter)),
      std::runtime_error);
  EXPECT_EQ(counter, 1);
}

TEST_F(MessageWindow, ManyThreadsPostAndSend) {
  constexpr int threads = 4;
  constexpr int rounds = 500;
  std::atomic<int> handled{0};
  Owner owner([&](const Received&) { return ++handled; });
  std::vector<std::thread> workers;
  for (int t = 0; t < threads; ++t) {
    workers.emplace_back([&, t] {
      for (int i = 0; i < rounds; ++i) {
        EXPECT_TRUE(PostWindowMessage(owner.handle, kFirst, static_cast<std::uintptr_t>(t), i));
        EXPECT_GT(SendWindowMessage(owner.handle, kFirst + 1, 0, 0), 0);
      }
    });
  }
  for (auto& worker : workers) worker.join();
  while (handled < 2 * threads * rounds) std::this_thread::yield();
  owner.Stop();
  std::vector<std::intptr_t> next(threads, 0);
  for (const Received& r : owner.log) {
    const std::size_t from = r.message == kFirst ? r.wParam : threads;
    EXPECT_EQ(r.lParam, from == threads ? 0 : next[from]++);
  }
}

TEST_F(MessageWindow, Waiting) {
  TestWindow window;
  EXPECT_FALSE(WaitForWindowMessage(0));
  EXPECT_FALSE(WaitForWindowMessage(5));
  std::thread poster([&] { PostWindowMessage(window.handle, kFirst, 0, 0); });
  EXPECT_TRUE(WaitForWindowMessage(std::numeric_limits<std::int64_t>::max()));
  poster.join();
  TakeAll();
  InvalidateMessageWindow(window.handle);
  EXPECT_TRUE(WaitForWindowMessage(0));
  TakeAll();
  PostQuit(0);
  EXPECT_TRUE(WaitForWindowMessage(0));
}

}  // namespace
}  // namespace korin::test
