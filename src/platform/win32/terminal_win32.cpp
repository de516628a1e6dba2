#include "platform/terminal.h"

#include "platform/text.h"
#include "platform/win32/windows_api.h"
// Behind the header that it builds on.
#include <shellapi.h>

namespace korin::platform {

namespace {

HANDLE Console(StandardStream stream) {
  return GetStdHandle(stream == StandardStream::kOutput ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
}

// The console's code page, which outlives the program.
class Utf8Console {
 public:
  Utf8Console() { SetConsoleOutputCP(CP_UTF8); }
  Utf8Console(const Utf8Console&) = delete;
  Utf8Console& operator=(const Utf8Console&) = delete;
  ~Utf8Console() { SetConsoleOutputCP(m_former); }

 private:
  UINT m_former = GetConsoleOutputCP();
};

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

std::vector<std::string> CommandWords(int argc, char** argv) {
  static const Utf8Console console;
  int count = 0;
  wchar_t** const words = CommandLineToArgvW(GetCommandLineW(), &count);
  if (words == nullptr) return {argv, argv + argc};
  std::vector<std::string> result;
  for (int i = 0; i < count; ++i) result.push_back(ToUtf8(words[i]));
  LocalFree(words);
  return result;
}

void OccupyClosedStreams() noexcept {}  // handles are not numbered by their order

}  // namespace korin::platform
