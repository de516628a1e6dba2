// Message-only windows of the system. Their messages are the system's own; two things
// are kept here because such windows lack them: asking for a paint message (only
// visible windows are ever painted), and exceptions of a procedure, which must not
// cross the system's frames and wait until the call that runs it is back.
#include "korinimage/message_window.h"

#include <algorithm>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "platform/lasting.h"
#include "platform/per_thread.h"
#include "platform/win32/windows_api.h"

namespace korin {

namespace {

constexpr wchar_t kClassName[] = L"KorinImageMessageWindow";
constexpr std::int64_t kMostQueued = 10000;

struct Window {
  WindowProcedure procedure;
  void* context;
  DWORD thread;
};

// An event that tells a waiting thread of paints asked for by others.
struct Paints {
  std::vector<HWND> windows;  // each once, in the order of asking
  HANDLE event = nullptr;
  int waits = 0;  // calls that wait for the event
};

struct Desk {
  std::mutex mutex;
  std::map<HWND, std::unique_ptr<Window>> windows;
  std::map<DWORD, Paints> paints;  // by thread

  void AtUnload() noexcept {
    const std::unique_lock lock(mutex, std::try_to_lock);
    if (!lock || !windows.empty()) return;
    for (const auto& [thread, waiting] : paints) {
      if (waiting.event != nullptr) CloseHandle(waiting.event);
    }
    paints.clear();
  }
};

// Threads may end after the static objects of the process.
Desk& TheDesk() { return platform::Lasting<Desk>(); }

struct Caller {
  bool makesOrEnds = false;  // a window, just now
  std::exception_ptr* thrown = nullptr;
};

Caller& ThisThread() { return platform::PerThread<Caller>(); }

void Keep(std::exception_ptr thrown) {
  auto& kept = ThisThread().thrown;
  if (kept == nullptr) kept = new (std::nothrow) std::exception_ptr(std::move(thrown));
}

void RethrowKept() {
  if (ThisThread().thrown == nullptr) return;
  const std::unique_ptr<std::exception_ptr> kept(std::exchange(ThisThread().thrown, nullptr));
  std::rethrow_exception(*kept);
}

// While a window of this thread comes or goes.
class Transition {
 public:
  Transition() : m_caller(ThisThread()) { m_caller.makesOrEnds = true; }
  Transition(const Transition&) = delete;
  Transition& operator=(const Transition&) = delete;
  ~Transition() { m_caller.makesOrEnds = false; }

 private:
  Caller& m_caller;
};

bool EndWindow(HWND window) {
  const Transition transition;
  return DestroyWindow(window) != 0;
}

LRESULT CALLBACK Procedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
  // What the system sends to a window that comes or goes is no message of its users.
  if (ThisThread().makesOrEnds) return DefWindowProcW(handle, message, wParam, lParam);
  const auto* const window =
      reinterpret_cast<const Window*>(GetWindowLongPtrW(handle, GWLP_USERDATA));
  if (window == nullptr) return DefWindowProcW(handle, message, wParam, lParam);
  const Window called = *window;  // the procedure may destroy it
  try {
    return called.procedure(handle, message, wParam, lParam, called.context);
  } catch (...) {
    Keep(std::current_exception());
    return 0;
  }
}

HINSTANCE ThisModule() {
  HMODULE module = nullptr;
  GetModuleHandleExW(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      reinterpret_cast<LPCWSTR>(&ThisModule), &module);
  return module;
}

// Registered while the library is loaded: a class left behind would lead the next
// load's windows to an address that is gone.
struct WindowClass {
  WindowClass() {
    WNDCLASSEXW description{};
    description.cbSize = sizeof description;
    description.lpfnWndProc = Procedure;
    description.hInstance = ThisModule();
    description.lpszClassName = kClassName;
    atom = RegisterClassExW(&description);
  }
  WindowClass(const WindowClass&) = delete;
  WindowClass& operator=(const WindowClass&) = delete;
  ~WindowClass() { UnregisterClassW(kClassName, ThisModule()); }

  ATOM atom;
};

// The mutex is held.
void ForgetPaint(Desk& desk, HWND window) {
  for (auto& [thread, paints] : desk.paints) {
    paints.windows.erase(std::remove(paints.windows.begin(), paints.windows.end(), window),
                         paints.windows.end());
  }
}

// Forgets the windows that ended with their threads. The mutex is held.
void ForgetDead(Desk& desk) {
  for (auto window = desk.windows.begin(); window != desk.windows.end();) {
    if (IsWindow(window->first) != 0) {
      ++window;
      continue;
    }
    ForgetPaint(desk, window->first);
    window = desk.windows.erase(window);
  }
  for (auto paints = desk.paints.begin(); paints != desk.paints.end();) {
    const DWORD thread = paints->first;
    const bool used =
        paints->second.waits > 0 ||
        std::any_of(desk.windows.begin(), desk.windows.end(),
                    [thread](const auto& window) { return window.second->thread == thread; });
    if (used) {
      ++paints;
      continue;
    }
    if (paints->second.event != nullptr) CloseHandle(paints->second.event);
    paints = desk.paints.erase(paints);
  }
}

bool IsMine(HWND window) {
  return window != nullptr && GetWindowThreadProcessId(window, nullptr) == GetCurrentThreadId();
}

bool IsInRange(unsigned number, unsigned first, unsigned last) {
  return (first == 0 && last == 0) || (first <= number && number <= last);
}

// The oldest window of this thread that waits for a paint.
std::optional<HWND> WaitingPaint(bool remove) {
  Desk& desk = TheDesk();
  const std::lock_guard lock(desk.mutex);
  const auto found = desk.paints.find(GetCurrentThreadId());
  if (found == desk.paints.end() || found->second.windows.empty()) return std::nullopt;
  Paints& paints = found->second;
  const HWND window = paints.windows.front();
  if (remove) paints.windows.erase(paints.windows.begin());
  if (paints.windows.empty() && paints.event != nullptr) ResetEvent(paints.event);
  return window;
}

}  // namespace

HWND CreateMessageWindow(WindowProcedure procedure, void* context) noexcept try {
  static const WindowClass windowClass;
  if (procedure == nullptr || windowClass.atom == 0) return nullptr;
  auto window = std::make_unique<Window>(Window{procedure, context, GetCurrentThreadId()});
  const HWND handle = [] {
    const Transition transition;
    return CreateWindowExW(0, kClassName, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, ThisModule(),
                           nullptr);
  }();
  if (handle == nullptr) return nullptr;
  try {
    Desk& desk = TheDesk();
    const std::lock_guard lock(desk.mutex);
    ForgetDead(desk);
    SetWindowLongPtrW(handle, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(window.get()));
    desk.windows[handle] = std::move(window);
    return handle;
  } catch (const std::bad_alloc&) {
    EndWindow(handle);
    return nullptr;
  }
} catch (const std::bad_alloc&) {
  return nullptr;
}

bool DestroyMessageWindow(HWND window) noexcept try {
  if (!IsMine(window) || !EndWindow(window)) return false;
  Desk& desk = TheDesk();
  const std::lock_guard lock(desk.mutex);
  ForgetPaint(desk, window);
  desk.windows.erase(window);
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

std::intptr_t SendWindowMessage(HWND window, unsigned message, std::uintptr_t wParam,
                                std::intptr_t lParam) {
  if (window == nullptr || window == HWND_BROADCAST) return 0;
  const std::intptr_t answer = SendMessageW(window, message, wParam, lParam);
  RethrowKept();
  return answer;
}

bool PostWindowMessage(HWND window, unsigned message, std::uintptr_t wParam,
                       std::intptr_t lParam) noexcept {
  if (window == nullptr || window == HWND_BROADCAST) return false;
  if (message == kMessagePaint) return InvalidateMessageWindow(window);
  return PostMessageW(window, message, wParam, lParam) != 0;
}

bool InvalidateMessageWindow(HWND window) noexcept try {
  if (IsWindow(window) == 0) return false;
  Desk& desk = TheDesk();
  const std::lock_guard lock(desk.mutex);
  const auto found = desk.windows.find(window);
  if (found == desk.windows.end()) return InvalidateRect(window, nullptr, FALSE) != 0;
  Paints& paints = desk.paints[found->second->thread];
  if (paints.event == nullptr) paints.event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (std::find(paints.windows.begin(), paints.windows.end(), window) == paints.windows.end()) {
    paints.windows.push_back(window);
    if (paints.event != nullptr) SetEvent(paints.event);
  }
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

bool PeekWindowMessage(WindowMessage* message, unsigned first, unsigned last, bool remove) {
  // Sent messages first: what one of their procedures throws leaves before a posted
  // message is taken out.
  MSG taken;
  PeekMessageW(&taken, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
  RethrowKept();
  if (PeekMessageW(&taken, nullptr, first, last, remove ? PM_REMOVE : PM_NOREMOVE) != 0) {
    *message = {taken.hwnd, taken.message, taken.wParam, taken.lParam};
    return true;
  }
  RethrowKept();
  if (!IsInRange(kMessagePaint, first, last)) return false;
  const auto paint = WaitingPaint(remove);
  if (!paint) return false;
  *message = {*paint, kMessagePaint, 0, 0};
  return true;
}

std::intptr_t DispatchWindowMessage(const WindowMessage& message) {
  if (!IsMine(message.window)) return 0;
  MSG toDispatch{};
  toDispatch.hwnd = message.window;
  toDispatch.message = message.message;
  toDispatch.wParam = message.wParam;
  toDispatch.lParam = message.lParam;
  TranslateMessage(&toDispatch);
  const std::intptr_t answer = DispatchMessageW(&toDispatch);
  RethrowKept();
  return answer;
}

void PostQuit(int exitCode) noexcept { PostQuitMessage(exitCode); }

std::int64_t QueuedMessageCount() noexcept { return kMostQueued; }

bool WaitForWindowMessage(std::int64_t milliseconds) noexcept try {
  HANDLE event = nullptr;
  {
    Desk& desk = TheDesk();
    const std::lock_guard lock(desk.mutex);
    Paints& paints = desk.paints[GetCurrentThreadId()];
    if (paints.event == nullptr) {
      paints.event = CreateEventW(nullptr, TRUE, paints.windows.empty() ? FALSE : TRUE, nullptr);
    }
    event = paints.event;
    ++paints.waits;
  }
  const DWORD limit =
      milliseconds < 0 || milliseconds >= INFINITE ? INFINITE : static_cast<DWORD>(milliseconds);
  const DWORD result = MsgWaitForMultipleObjectsEx(event == nullptr ? 0 : 1, &event, limit,
                                                   QS_ALLINPUT, MWMO_INPUTAVAILABLE);
  {
    Desk& desk = TheDesk();
    const std::lock_guard lock(desk.mutex);
    --desk.paints[GetCurrentThreadId()].waits;
  }
  return result != WAIT_TIMEOUT && result != WAIT_FAILED;
} catch (const std::bad_alloc&) {
  return false;
}

}  // namespace korin
