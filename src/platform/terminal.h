#pragma once

#include <string>
#include <vector>

// What a command may know of the terminal it runs in.
namespace korin::platform {

enum class StandardStream { kOutput, kError };

// True when the stream goes to a terminal rather than to a file or pipe.
bool IsTerminal(StandardStream stream) noexcept;

// Width of the terminal behind the stream in columns; `fallback` when it is none or
// does not say.
int TerminalColumns(StandardStream stream, int fallback) noexcept;

// The words of the command line in UTF-8, the program's own first: those given to main,
// or, where these have lost characters, the system's. A console shows UTF-8 from now on
// until the command ends.
std::vector<std::string> CommandWords(int argc, char** argv);

// For the start of a command: occupies standard streams that its parent closed, so
// that no file opened later takes their place and gets what is printed. Printing to
// them fails.
void OccupyClosedStreams() noexcept;

}  // namespace korin::platform
