#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/terminal.h"

namespace korin::platform {

namespace {

int Descriptor(StandardStream stream) {
  return stream == StandardStream::kOutput ? STDOUT_FILENO : STDERR_FILENO;
}

}  // namespace

bool IsTerminal(StandardStream stream) noexcept { return isatty(Descriptor(stream)) == 1; }

int TerminalColumns(StandardStream stream, int fallback) noexcept {
  winsize size{};
  if (ioctl(Descriptor(stream), TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return fallback;
  return size.ws_col;
}

}  // namespace korin::platform
