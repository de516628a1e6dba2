#include "korinimage/progress_win.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "korinimage/message_window.h"

namespace korin {

namespace {

constexpr std::int64_t kMaxPaints = 64;
constexpr std::int64_t kMaxQueued = 10000;

// Takes messages of one kind out of the calling thread's queue. A quit message ends
// the look: it is put back at once, so that no handler that throws can lose it.
class Drain {
 public:
  std::optional<WindowMessage> Take(unsigned number) {
    WindowMessage message;
    if (m_quit || !PeekWindowMessage(&message, number, number, true)) return std::nullopt;
    if (message.message == kMessageQuit) {
      m_quit = true;
      PostQuit(static_cast<int>(message.wParam));
      return std::nullopt;
    }
    return message;
  }

 private:
  bool m_quit = false;
};

}  // namespace

ProgressWin::ProgressWin(HWND window, const wchar_t* caption, bool post)
    : m_hWnd(window), m_pszCaption(caption), m_bPost(post) {}

ProgressWin::~ProgressWin() = default;

std::shared_ptr<Progress> ProgressWin::Create(HWND window, const wchar_t* caption, bool post) {
  if (window == nullptr) return nullptr;
  return std::make_shared<ProgressWin>(window, caption, post);
}

std::shared_ptr<Progress> MakeWindowProgress(HWND window, const wchar_t* caption) {
  return ProgressWin::Create(window, caption, false);
}

void ProgressWin::initialize() {
  SendWindowMessage(m_hWnd, kProgressMessage, kProgressInitialize,
                    reinterpret_cast<std::intptr_t>(m_pszCaption));
}

// The value is kept before it is delivered: the receiver may drop this sink.
void ProgressWin::update(int percent) {
  if (percent == m_nLastValue) return;
  m_nLastValue = percent;
  if (m_bPost) {
    PostWindowMessage(m_hWnd, kProgressMessage, kProgressUpdate, percent);
  } else {
    SendWindowMessage(m_hWnd, kProgressMessage, kProgressUpdate, percent);
  }
}

void ProgressWin::finalize() { SendWindowMessage(m_hWnd, kProgressMessage, kProgressFinalize, 0); }

void ProgressWin::message(const std::wstring& text) {
  SendWindowMessage(m_hWnd, kProgressMessage, kProgressText,
                    reinterpret_cast<std::intptr_t>(text.c_str()));
}

// Uses no member: a handler that runs in here may destroy this sink.
bool ProgressWin::escape() {
  Drain drain;
  const std::int64_t queued = std::min(QueuedMessageCount(), kMaxQueued);

  for (std::int64_t i = 0; i < queued; ++i) {
    const auto key = drain.Take(kMessageKeyDown);
    if (!key) break;
    if (key->wParam == kKeyEscape) return true;
  }

  // A window that does not come to rest asks for the next paint at once.
  std::vector<HWND> painted;
  for (std::int64_t i = 0; i < kMaxPaints; ++i) {
    const auto paint = drain.Take(kMessagePaint);
    if (!paint) break;
    if (std::find(painted.begin(), painted.end(), paint->window) != painted.end()) {
      InvalidateMessageWindow(paint->window);
      break;
    }
    painted.push_back(paint->window);
    DispatchWindowMessage(*paint);
  }

  for (std::int64_t i = 0; i < queued; ++i) {
    const auto report = drain.Take(kProgressMessage);
    if (!report) break;
    DispatchWindowMessage(*report);
  }
  return false;
}

}  // namespace korin
