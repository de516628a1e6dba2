#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <thread>
#include <utility>

#include "platform/fault.h"
#include "platform/win32/windows_api.h"

// What the files of this folder share: handles that close themselves, injected
// faults as error codes, transfers of any size.
namespace korin::platform::win32 {

// Closes on every way out; Close tells whether the system was content.
class FileHandle {
 public:
  explicit FileHandle(HANDLE handle = INVALID_HANDLE_VALUE) : m_handle(handle) {}
  FileHandle(FileHandle&& other) noexcept
      : m_handle(std::exchange(other.m_handle, INVALID_HANDLE_VALUE)) {}
  FileHandle& operator=(FileHandle&& other) noexcept {
    std::swap(m_handle, other.m_handle);
    return *this;
  }
  ~FileHandle() { Close(); }

  explicit operator bool() const { return m_handle != INVALID_HANDLE_VALUE; }
  HANDLE Get() const { return m_handle; }
  HANDLE Take() { return std::exchange(m_handle, INVALID_HANDLE_VALUE); }
  bool Close() {
    return m_handle == INVALID_HANDLE_VALUE ||
           CloseHandle(std::exchange(m_handle, INVALID_HANDLE_VALUE)) != 0;
  }

 private:
  HANDLE m_handle;
};

// A handle as the platform classes keep it: -1 is the invalid one.
inline HANDLE ToHandle(std::intptr_t number) { return reinterpret_cast<HANDLE>(number); }
inline std::intptr_t ToNumber(HANDLE handle) { return reinterpret_cast<std::intptr_t>(handle); }

inline DWORD ErrorOf(Fault fault) {
  switch (fault) {
    case Fault::kNoMemory:
      return ERROR_NOT_ENOUGH_MEMORY;
    case Fault::kNoSpace:
      return ERROR_DISK_FULL;
    default:
      return ERROR_GEN_FAILURE;
  }
}

// Sets the last error as the fault would; true when the call must not be made. The
// system has no interrupted calls: such a fault is asked away.
inline bool Injected(Call call) {
  for (;;) {
    const Fault fault = AskFault(call);
    if (fault == Fault::kInterrupted) continue;
    if (fault == Fault::kNone || fault == Fault::kShort) return false;
    SetLastError(ErrorOf(fault));
    return true;
  }
}

// Moves all bytes or as many as go. `step(done, piece)` makes one call of the system
// and gives what it moved, or none.
template <typename Step>
std::size_t Transfer(Call call, std::size_t size, Step step) {
  constexpr std::size_t kPiece = std::size_t{64} << 20;
  std::size_t moved = 0;
  while (moved < size) {
    std::size_t piece = std::min(size - moved, kPiece);
    const Fault fault = AskFault(call);
    if (fault == Fault::kInterrupted) continue;
    if (fault == Fault::kShort) {
      piece = (piece + 1) / 2;
    } else if (fault != Fault::kNone) {
      SetLastError(ErrorOf(fault));
      break;
    }
    DWORD now = 0;
    if (!step(moved, static_cast<DWORD>(piece), now)) break;
    if (now == 0) {
      SetLastError(ERROR_HANDLE_EOF);
      break;
    }
    moved += now;
  }
  return moved;
}

// The next bytes of an open file.
inline std::size_t ReadNext(HANDLE file, void* buffer, std::size_t size) {
  return Transfer(Call::kReadFile, size, [&](std::size_t done, DWORD piece, DWORD& now) {
    return ReadFile(file, static_cast<char*>(buffer) + done, piece, &now, nullptr) != 0;
  });
}
inline std::size_t WriteNext(HANDLE file, const void* buffer, std::size_t size) {
  return Transfer(Call::kWriteFile, size, [&](std::size_t done, DWORD piece, DWORD& now) {
    return WriteFile(file, static_cast<const char*>(buffer) + done, piece, &now, nullptr) != 0;
  });
}

inline bool Seek(HANDLE file, std::int64_t offset) {
  LARGE_INTEGER position;
  position.QuadPart = offset;
  return SetFilePointerEx(file, position, nullptr, FILE_BEGIN) != 0;
}

inline FileHandle Open(const std::filesystem::path& path, DWORD access, DWORD share, DWORD how,
                       DWORD flags) {
  if (Injected(Call::kOpenFile)) return FileHandle();
  return FileHandle(CreateFileW(path.c_str(), access, share, nullptr, how, flags, nullptr));
}

inline bool Sync(HANDLE file) { return !Injected(Call::kSyncFile) && FlushFileBuffers(file) != 0; }

// Replaces `to`. A reader that has it open without sharing it keeps the name for a
// moment.
inline bool Rename(const std::filesystem::path& from, const std::filesystem::path& to) {
  if (Injected(Call::kRenameFile)) return false;
  constexpr int kTries = 50;
  for (int attempt = 0; attempt < kTries; ++attempt) {
    if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) !=
        0) {
      return true;
    }
    const DWORD error = GetLastError();
    if (error != ERROR_SHARING_VIOLATION && error != ERROR_ACCESS_DENIED) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return false;
}

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// A file proper: no folder, no link to elsewhere, no device or pipe.
inline bool IsPlainFile(HANDLE file) {
  BY_HANDLE_FILE_INFORMATION info;
  return GetFileType(file) == FILE_TYPE_DISK && GetFileInformationByHandle(file, &info) != 0 &&
         (info.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) == 0;
}

}  // namespace korin::platform::win32
