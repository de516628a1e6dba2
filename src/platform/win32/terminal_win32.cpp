#include "platform/terminal.h"

#include "platform/win32/windows_api.h"

namespace korin::platform {

namespace {

HANDLE Console(StandardStream stream) {
  return GetStdHandle(stream == StandardStream::kOutput ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
}

}  // namespace

bool IsTerminal(StandardStream stream) noexcept {
  DWORD mode = 0;
  return GetConsoleMode(Console(stream), &mode) != 0;
}

int TerminalColumns(StandardStream stream, int fallback) noexcept {
  CONSOLE_SCREEN_BUFFER_INFO info;
  if (GetConsoleScreenBufferInfo(Console(stream), &info) == 0) return fallback;
  const int columns = info.srWindow.Right - info.srWindow.Left + 1;
  return columns > 0 ? columns : fallback;
}

void OccupyClosedStreams() noexcept {}  // handles are not numbered by their order

}  // namespace korin::platform
