#include "korinimage/progress_win.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "progress/test_window.h"
#include "support/system.h"

namespace korin::test {
namespace {

constexpr unsigned kProgress = 0x470;
constexpr unsigned kOther = 0x400;

std::intptr_t Pointer(const void* p) { return reinterpret_cast<std::intptr_t>(p); }
void Key(HWND window, char key) {
  PostWindowMessage(window, kMessageKeyDown, static_cast<std::uintptr_t>(key), 0);
}
constexpr char kEscape = '\x1B';

using ProgressWinTest = WindowTest;

TEST_F(ProgressWinTest, SendsEveryReportAndPostsUpdatesWhenAskedTo) {
  const wchar_t* const caption = L"Reading";
  for (const bool post : {false, true}) {
    std::wstring text;
    TestWindow window([&](const Received& r) {
      if (r.wParam == 4) text = reinterpret_cast<const wchar_t*>(r.lParam);
      return std::intptr_t{0};
    });
    const auto sink = ProgressWin::Create(window.handle, caption, post);
    sink->initialize();
    sink->update(0);  // the value it starts with
    sink->update(5);
    sink->update(5);
    sink->update(125);
    sink->message(L"two of three");
    sink->finalize();
    // A second operation goes on from the last value.
    sink->initialize();
    sink->update(125);
    sink->update(0);

    EXPECT_EQ(text, L"two of three");
    Log sent, updates;
    for (Received r : window.log) {
      if (r.wParam == 4) r.lParam = 0;
      (r.wParam == 1 ? updates : sent).push_back(r);
    }
    EXPECT_EQ(sent, (Log{{kProgress, 0, Pointer(caption)},
                         {kProgress, 4, 0},
                         {kProgress, 2, 0},
                         {kProgress, 0, Pointer(caption)}}));
    EXPECT_EQ(post ? TakeAll() : updates,
              (Log{{kProgress, 1, 5}, {kProgress, 1, 125}, {kProgress, 1, 0}}));
    EXPECT_EQ(window.log.size(), post ? 4U : 7U);
    EXPECT_EQ(window.log[1].wParam, post ? 4U : 1U) << "in their order";
  }
}

TEST_F(ProgressWinTest, NoWindowNoSink) {
  EXPECT_EQ(ProgressWin::Create(nullptr, L"caption", false), nullptr);
  EXPECT_EQ(MakeWindowProgress(nullptr, nullptr), nullptr);
  HWND dead = nullptr;
  {
    const TestWindow window;
    dead = window.handle;
  }
  for (const bool post : {false, true}) {
    const auto sink = ProgressWin::Create(dead, nullptr, post);
    sink->initialize();
    sink->update(3);
    sink->finalize();
    EXPECT_FALSE(sink->escape());
  }
  TestWindow window;
  MakeWindowProgress(window.handle, nullptr)->update(9);
  EXPECT_EQ(window.log.size(), 1U) << "sent, not posted";
}

TEST_F(ProgressWinTest, EscapeStopsAtTheKey) {
  TestWindow window;
  const auto sink = ProgressWin::Create(window.handle, nullptr, true);
  Key(window.handle, 'A');
  sink->update(40);
  Key(window.handle, kEscape);
  Key(window.handle, 'B');
  InvalidateMessageWindow(window.handle);
  EXPECT_TRUE(sink->escape());
  EXPECT_TRUE(window.log.empty());
  EXPECT_EQ(TakeAll(), (Log{{kProgress, 1, 40}, {kMessageKeyDown, 'B', 0}, {kMessagePaint, 0, 0}}));
}

TEST_F(ProgressWinTest, EscapeDropsKeysAndServesTheDisplay) {
  TestWindow window;
  TestWindow other;
  const auto sink = ProgressWin::Create(window.handle, nullptr, true);
  sink->update(40);
  Key(other.handle, 'A');
  PostWindowMessage(window.handle, kOther, kKeyEscape, 0);
  InvalidateMessageWindow(window.handle);
  InvalidateMessageWindow(other.handle);
  sink->update(50);
  Key(window.handle, 'B');
  EXPECT_FALSE(sink->escape());
  EXPECT_EQ(window.log, (Log{{kMessagePaint, 0, 0}, {kProgress, 1, 40}, {kProgress, 1, 50}}));
  EXPECT_EQ(other.log, (Log{{kMessagePaint, 0, 0}}));
  EXPECT_EQ(TakeAll(), (Log{{kOther, kKeyEscape, 0}})) << "other messages stay";
}

TEST_F(ProgressWinTest, EscapeGivesQuitBack) {
  TestWindow window;
  const auto sink = ProgressWin::Create(window.handle, nullptr, true);
  sink->update(40);
  Key(window.handle, 'A');
  InvalidateMessageWindow(window.handle);
  PostQuit(static_cast<int>(kKeyEscape));  // an exit code that looks like the key
  EXPECT_FALSE(sink->escape());
  EXPECT_TRUE(window.log.empty()) << "the application is ending";
  EXPECT_EQ(TakeAll(),
            (Log{{kProgress, 1, 40}, {kMessageQuit, kKeyEscape, 0}, {kMessagePaint, 0, 0}}));
  // The Escape key in front of it counts; negative codes survive.
  Key(window.handle, kEscape);
  PostQuit(-3);
  EXPECT_TRUE(sink->escape());
  EXPECT_FALSE(sink->escape());
  const Log rest = TakeAll();
  ASSERT_EQ(rest.size(), 1U);
  EXPECT_EQ(static_cast<int>(rest[0].wParam), -3);
}

// Windows that never come to rest must not keep the operation waiting.
TEST_F(ProgressWinTest, EscapeIsBounded) {
  HWND self = nullptr;
  const auto restless = [&](const Received& r) {
    if (r.message == kMessagePaint) {
      InvalidateMessageWindow(self);
    } else {
      PostWindowMessage(self, kProgress, 1, 0);
      Key(self, 'x');
    }
    return std::intptr_t{0};
  };
  TestWindow window(restless);
  self = window.handle;
  InvalidateMessageWindow(self);
  PostWindowMessage(self, kProgress, 1, 0);
  PostWindowMessage(self, kProgress, 1, 0);
  const auto sink = ProgressWin::Create(self, nullptr, true);
  EXPECT_FALSE(sink->escape());
  if (kWindows) {  // nobody tells how many waited at the start
    EXPECT_EQ(window.log.size(), 10'001U) << "one paint, the bound of reports";
  } else {
    EXPECT_EQ(window.log.size(), 3U) << "one paint, two reports";
    EXPECT_EQ(TakeAll().size(), 5U) << "two reports, two keys, one paint";
  }
  TakeAll();

  std::vector<std::unique_ptr<TestWindow>> many;
  for (int i = 0; i < 70; ++i) {
    many.push_back(std::make_unique<TestWindow>());
    InvalidateMessageWindow(many.back()->handle);
  }
  EXPECT_FALSE(sink->escape());
  std::size_t painted = 0;
  for (const auto& one : many) painted += one->log.size();
  EXPECT_EQ(painted, 64U);
}

TEST_F(ProgressWinTest, EscapeSurvivesTheEndOfItsSink) {
  std::shared_ptr<Progress> sink;
  TestWindow window([&](const Received&) {
    sink.reset();
    return std::intptr_t{0};
  });
  sink = ProgressWin::Create(window.handle, nullptr, true);
  sink->update(1);
  InvalidateMessageWindow(window.handle);
  EXPECT_FALSE(sink.get()->escape());
  EXPECT_EQ(sink, nullptr);
  EXPECT_EQ(window.log.size(), 2U);
}

TEST_F(ProgressWinTest, OtherThreads) {
  TestWindow window;
  Key(window.handle, kEscape);
  const auto sink = ProgressWin::Create(window.handle, nullptr, true);
  std::thread([&] {
    sink->update(7);
    EXPECT_FALSE(sink->escape()) << "another thread's queue";
  }).join();
  EXPECT_TRUE(window.log.empty());
  EXPECT_TRUE(sink->escape());
}

}  // namespace
}  // namespace korin::test
