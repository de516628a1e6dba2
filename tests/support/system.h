#pragma once

#include <string>

// What tests must know of the system below: where an interface passes the system's
// own objects through, its limits and its checks are the system's.
namespace korin::test {

#if defined(_WIN32)
inline constexpr bool kWindows = true;
#else
inline constexpr bool kWindows = false;
#endif

// A command line for std::system and the like. The shell of Windows takes away the
// first and the last quote of a line that begins with one.
inline std::string ShellCommand(const std::string& line) {
  return kWindows ? "\"" + line + "\"" : line;
}

}  // namespace korin::test
