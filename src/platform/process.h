#pragma once

#include <cstdint>
#include <string_view>

// What the process is and may do.
namespace korin::platform {

// Differs between a process and its forked child.
std::int64_t ProcessId();

// True for a 32-bit process on a 64-bit Windows; false on every other system.
bool IsWow64();

// Bytes that one file of this process may reach; the largest value when there is
// no limit. Writing past it would end the process.
std::int64_t FileSizeLimit();

// Writes `line` and a line end to standard error in one piece, so that lines of
// several threads and processes do not mix. Failures are ignored.
void WriteErrorLine(std::string_view line) noexcept;

}  // namespace korin::platform
