#pragma once

#include <cstdio>
#include <string>

// What tests must know of the system below: where an interface passes the system's
// own objects through, its limits and its checks are the system's.
namespace korin::test {

#if defined(_WIN32)
inline constexpr bool kWindows = true;
inline std::FILE* OpenPipe(const char* line) { return _popen(line, "w"); }
inline int ClosePipe(std::FILE* pipe) { return _pclose(pipe); }
#define KORIN_TEST_EXPORT extern "C" __declspec(dllexport)
#else
inline constexpr bool kWindows = false;
inline std::FILE* OpenPipe(const char* line) { return popen(line, "w"); }
inline int ClosePipe(std::FILE* pipe) { return pclose(pipe); }
#define KORIN_TEST_EXPORT extern "C" __attribute__((visibility("default")))
#endif

// A command line for OpenPipe, std::system and the like. The shell of Windows takes away the
// first and the last quote of a line that begins with one.
inline std::string ShellCommand(const std::string& line) {
  return kWindows ? "\"" + line + "\"" : line;
}

}  // namespace korin::test
