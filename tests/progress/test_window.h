#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "korinimage/message_window.h"

namespace korin::test {

// What a window received, window handles left out.
struct Received {
  unsigned message;
  std::uintptr_t wParam;
  std::intptr_t lParam;
  friend bool operator==(const Received&, const Received&) = default;
};

// A message window of the calling thread that keeps what it receives.
class TestWindow {
 public:
  using Handler = std::function<std::intptr_t(const Received&)>;

  explicit TestWindow(Handler handler = nullptr)
      : m_handler(std::move(handler)), handle(CreateMessageWindow(&TestWindow::Procedure, this)) {}
  ~TestWindow() { DestroyMessageWindow(handle); }
  TestWindow(const TestWindow&) = delete;
  TestWindow& operator=(const TestWindow&) = delete;

 private:
  static std::intptr_t Procedure(HWND, unsigned message, std::uintptr_t wParam,
                                 std::intptr_t lParam, void* context) {
    auto& self = *static_cast<TestWindow*>(context);
    if (std::this_thread::get_id() != self.m_thread) self.foreignThread = true;
    self.log.push_back({message, wParam, lParam});
    return self.m_handler ? self.m_handler(self.log.back()) : 0;
  }

  Handler m_handler;
  std::thread::id m_thread = std::this_thread::get_id();

 public:
  const HWND handle;
  std::vector<Received> log;
  bool foreignThread = false;  // the procedure ran elsewhere
};

using Log = std::vector<Received>;

// Empties the calling thread's queue; the messages in the order they came.
inline Log TakeAll() {
  Log all;
  for (WindowMessage m; PeekWindowMessage(&m, 0, 0, true);) {
    all.push_back({m.message, m.wParam, m.lParam});
  }
  return all;
}

// Begins and ends with an empty queue.
class WindowTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(TakeAll().empty()); }
  void TearDown() override { TakeAll(); }
};

}  // namespace korin::test
