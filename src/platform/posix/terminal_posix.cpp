#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

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

std::vector<std::string> CommandWords(int argc, char** argv) { return {argv, argv + argc}; }

void OccupyClosedStreams() noexcept {
  for (int file = STDIN_FILENO; file <= STDERR_FILENO; ++file) {
    if (fcntl(file, F_GETFD) != -1 || errno != EBADF) continue;
    // The lowest free number is this one. Opened the wrong way round: reading the
    // input and writing the others are errors.
    static_cast<void>(open("/dev/null", file == STDIN_FILENO ? O_WRONLY : O_RDONLY));
  }
}

}  // namespace korin::platform
