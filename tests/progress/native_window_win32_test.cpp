// A window of the application's own, with a procedure that knows nothing of the library.
#include <windows.h>

#include <thread>

#include "korinimage/progress_win.h"
#include "test_window.h"

namespace korin::test {
namespace {

constexpr wchar_t kClass[] = L"ApplicationWindow";
Log g_log;

LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message != kProgressMessage && message != WM_PAINT) {
    return DefWindowProcW(window, message, wParam, lParam);
  }
  g_log.push_back({message, wParam, lParam});
  if (message == WM_PAINT) ValidateRect(window, nullptr);
  return 0;
}

class NativeWindow : public WindowTest {
 protected:
  void SetUp() override {
    WindowTest::SetUp();
    g_log.clear();
    WNDCLASSW description{};
    description.lpfnWndProc = Procedure;
    description.hInstance = GetModuleHandleW(nullptr);
    description.lpszClassName = kClass;
    RegisterClassW(&description);
    m_window = Make();
    ASSERT_NE(m_window, nullptr);
  }
  void TearDown() override {
    DestroyWindow(m_window);
    UnregisterClassW(kClass, GetModuleHandleW(nullptr));
  }
  static HWND Make() {
    return CreateWindowExW(0, kClass, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                           GetModuleHandleW(nullptr), nullptr);
  }

  HWND m_window = nullptr;
};

TEST_F(NativeWindow, ReceivesReportsAndItsKeys) {
  const wchar_t* const caption = L"Caption";
  const auto sink = ProgressWin::Create(m_window, caption, true);
  sink->initialize();
  sink->update(0);
  sink->update(7);
  const Received begun{0x470, 0, reinterpret_cast<std::intptr_t>(caption)};
  EXPECT_EQ(g_log, Log{begun}) << "the update waits";
  PostMessageW(m_window, WM_KEYDOWN, 'A', 0);
  InvalidateMessageWindow(m_window);
  EXPECT_FALSE(sink->escape());
  EXPECT_EQ(g_log, (Log{begun, {0x470, 1, 7}}));
  for (const WPARAM key : {WPARAM{'A'}, WPARAM{VK_ESCAPE}, WPARAM{'B'}}) {
    PostMessageW(m_window, WM_KEYDOWN, key, 0);
  }
  EXPECT_TRUE(sink->escape());
  EXPECT_EQ(TakeAll(), (Log{{WM_KEYDOWN, 'B', 0}}));
  ProgressWin(m_window, caption, false).update(9);
  sink->finalize();
  EXPECT_EQ(g_log, (Log{begun, {0x470, 1, 7}, {0x470, 1, 9}, {0x470, 2, 0}}));
}

// Its thread may have ended, or be busy and end without looking.
TEST_F(NativeWindow, ThatIsGoneTakesNoReport) {
  HWND dead = nullptr;
  std::thread([&dead] { dead = Make(); }).join();
  for (const bool post : {false, true}) {
    const auto sink = ProgressWin::Create(dead, nullptr, post);
    sink->initialize();
    sink->update(5);
    EXPECT_FALSE(sink->escape());
    sink->finalize();
  }
  HWND busy = nullptr;
  const HANDLE made = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  std::thread owner([&] {
    busy = Make();
    SetEvent(made);
    Sleep(200);
  });
  WaitForSingleObject(made, INFINITE);
  CloseHandle(made);
  ProgressWin(busy, nullptr, false).update(5);  // comes back when the thread has ended
  owner.join();
  EXPECT_EQ(g_log, Log());
}

}  // namespace
}  // namespace korin::test
