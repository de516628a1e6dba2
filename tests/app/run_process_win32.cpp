#define WIN32_LEAN_AND_MEAN
#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <mutex>

#include "run_process.h"

namespace korin::test {

namespace {

HANDLE NewFile(const std::string& name) {
  SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
  return CreateFileA(name.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited, CREATE_ALWAYS,
                     FILE_ATTRIBUTE_NORMAL, nullptr);
}

}  // namespace

// Words must hold no quote.
Ended RunProcess(std::vector<std::string> words, const std::string& out, const std::string& err,
                 int) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "\"" : " \"") + word + '"';
  std::wstring wide = std::filesystem::path(std::u8string(line.begin(), line.end())).native();
  // A program inherits what is open now, the files of one started meanwhile too.
  static std::mutex oneByOne;
  std::unique_lock lock(oneByOne);
  STARTUPINFOW start{};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdOutput = NewFile(out);
  start.hStdError = NewFile(err);
  PROCESS_INFORMATION process{};
  Ended ended;
  EXPECT_NE(CreateProcessW(nullptr, wide.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                           &start, &process),
            0)
      << GetLastError();
  CloseHandle(start.hStdOutput);
  CloseHandle(start.hStdError);
  lock.unlock();
  if (process.hProcess != nullptr) {
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD code = 0;
    GetExitCodeProcess(process.hProcess, &code);
    ended.code = static_cast<int>(code);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
  }
  return ended;
}

}  // namespace korin::test
