#pragma once

#include <cstdint>

#include "korinimage/export.h"
#include "korinimage/types.h"

// Windows that only receive messages: what a progress sink of the window kind
// reports to. On Windows they are message-only windows of the system, and a handle
// of any other window may be used with the functions below as well. Elsewhere the
// library keeps windows and queues of its own inside the process, with the same
// rules and the same message numbers.
//
// A window belongs to the thread that made it: its procedure runs only there, while
// that thread peeks, waits for an answer of its own, or dispatches. A thread's
// queue comes into being at its first use and ends with the thread, and its windows
// with it. Handles are numbers that are not used again soon: a handle of a
// destroyed window is recognised and answers 0 or false.
//
// No function throws; where memory runs out, the answer is null, 0 or false. A
// procedure should not throw: an exception leaves the call that ran it, and a
// sender on another thread gets 0.
namespace korin {

inline constexpr unsigned kMessagePaint = 0x0F;
inline constexpr unsigned kMessageQuit = 0x12;
inline constexpr unsigned kMessageKeyDown = 0x100;
inline constexpr std::uintptr_t kKeyEscape = 0x1B;  // wParam of a key press

// Handles a message of `window` and gives the answer that a sender receives.
// `context` is what the window was made with.
using WindowProcedure = std::intptr_t (*)(HWND window, unsigned message, std::uintptr_t wParam,
                                          std::intptr_t lParam, void* context);

struct WindowMessage {
  HWND window = nullptr;  // null: the thread itself (a quit message)
  unsigned message = 0;
  std::uintptr_t wParam = 0;
  std::intptr_t lParam = 0;
};

// Makes a window of the calling thread; null when that is impossible.
KORINIMAGE_API HWND CreateMessageWindow(WindowProcedure procedure, void* context) noexcept;

// Destroys a window of the calling thread. Its queued messages are dropped, and
// senders that wait for it get 0. False: dead handle, or another thread's window.
KORINIMAGE_API bool DestroyMessageWindow(HWND window) noexcept;

// Runs the window's procedure on its own thread and gives its answer: at once when
// that is the calling thread, else when the owner next looks at its messages; until
// then the caller serves messages sent to its own windows. 0 when the window or its
// thread is gone, or ends before the message was handled.
KORINIMAGE_API std::intptr_t SendWindowMessage(HWND window, unsigned message, std::uintptr_t wParam,
                                               std::intptr_t lParam);

// Puts a message into the queue of the window's thread and returns at once. False:
// dead handle, or 10,000 messages wait there already. A posted kMessagePaint is
// the same as InvalidateMessageWindow.
KORINIMAGE_API bool PostWindowMessage(HWND window, unsigned message, std::uintptr_t wParam,
                                      std::intptr_t lParam) noexcept;

// Asks for one kMessagePaint, which comes when no posted message of the asked range
// is left. A window has at most one waiting; taking it out clears it.
KORINIMAGE_API bool InvalidateMessageWindow(HWND window) noexcept;

// First runs the messages sent to the calling thread, then gives the first queued
// message with first <= number <= last (0, 0: any), oldest first, and takes it out
// when `remove` is set. False: there is none. As on Windows, a waiting kMessageQuit
// is given whatever the range, after posted messages and before paint messages.
KORINIMAGE_API bool PeekWindowMessage(WindowMessage* message, unsigned first, unsigned last,
                                      bool remove);

// Hands a message taken from the queue to its window's procedure and gives the
// answer; 0 for a dead window, another thread's window or no window.
KORINIMAGE_API std::intptr_t DispatchWindowMessage(const WindowMessage& message);

// Asks the calling thread to end its message loop: a kMessageQuit with `exitCode`
// as wParam waits in its queue. A second one replaces the first.
KORINIMAGE_API void PostQuit(int exitCode) noexcept;

// How many posted messages wait for the calling thread, paint and quit messages not
// counted. On Windows, which does not tell, the largest possible number (10,000).
KORINIMAGE_API std::int64_t QueuedMessageCount() noexcept;

// Waits until a message of any kind, sent ones included, waits for the calling
// thread: true. False after `milliseconds` without one (negative: no limit). Runs
// nothing.
KORINIMAGE_API bool WaitForWindowMessage(std::int64_t milliseconds) noexcept;

}  // namespace korin
