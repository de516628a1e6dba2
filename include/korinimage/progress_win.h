#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "korinimage/export.h"
#include "korinimage/progress.h"
#include "korinimage/types.h"

namespace korin {

// A sink that turns each report into a message to a window of the application.
// Every message has the number kProgressMessage; wParam says what it is:
//
//   wParam                 lParam                             from
//   kProgressInitialize 0  the caption pointer, may be null   initialize, sent
//   kProgressUpdate     1  the percentage                     update, sent or posted
//   kProgressFinalize   2  0                                  finalize, sent
//   kProgressText       4  pointer to null-terminated text    message, sent
//
// Pointers in lParam are wide text of the sending process, valid while the message
// is being handled (the caption as long as its owner keeps it). A posted message
// never carries one. The receiver owns the display and clamps percentages.
//
// Thread rule: use a sending sink only on the thread that owns the window. From
// another thread each report waits until that thread looks at its messages, and
// when that thread waits for this one both wait for ever. With `post` set, update
// never waits. Results of deliveries are ignored; a dead window receives nothing.
class KORINIMAGE_API ProgressWin : public Progress {
 public:
  // `caption` is kept as the pointer: its text must live as long as the sink.
  ProgressWin(HWND window, const wchar_t* caption, bool post);
  ~ProgressWin() override;

  // An empty pointer for a null window: nothing is reported then.
  static std::shared_ptr<Progress> Create(HWND window, const wchar_t* caption, bool post);

  void initialize() override;
  // Delivers only a value that differs from the last one delivered, which starts at
  // 0 and is never reset: a first update with 0 is swallowed.
  void update(int percent) override;
  void finalize() override;
  void message(const std::wstring& text) override;

  // Looks through the calling thread's message queue, whatever the window. Key
  // presses are taken out and dropped until one is the Escape key: true, the ones
  // behind it stay. Without one, waiting paint messages and progress messages are
  // dispatched, and the answer is false.
  //
  // Bounded: no more key presses and progress messages than were queued at entry,
  // one paint per window and 64 in all. A quit message found on the way ends the
  // look, goes back with its exit code and is never taken for a key.
  //
  // The handlers run inside this call. They may drop this sink, but must not change
  // an image that the running operation works on.
  bool escape() override;

 private:
  HWND m_hWnd;
  const wchar_t* m_pszCaption;
  std::int32_t m_nLastValue = 0;
  bool m_bPost;
};

inline constexpr unsigned kProgressMessage = 0x470;
inline constexpr std::uintptr_t kProgressInitialize = 0;
inline constexpr std::uintptr_t kProgressUpdate = 1;
inline constexpr std::uintptr_t kProgressFinalize = 2;
inline constexpr std::uintptr_t kProgressText = 4;

// The sink of every overload that takes a window and a caption: a sending
// ProgressWin, or an empty pointer for a null window.
KORINIMAGE_API std::shared_ptr<Progress> MakeWindowProgress(HWND window, const wchar_t* caption);

}  // namespace korin
