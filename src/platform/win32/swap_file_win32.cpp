#include "platform/swap_file.h"

#include <system_error>
#include <utility>

#include "platform/process.h"
#include "platform/text.h"
#include "platform/win32/file_calls.h"

namespace korin::platform {

namespace {

constexpr int kTries = 20;

int LastError() { return static_cast<int>(GetLastError()); }

}  // namespace

bool SwapFile::Create(const std::filesystem::path& folder) {
  Close();
  for (int attempt = 0; attempt < kTries; ++attempt) {
    wchar_t name[MAX_PATH + 1];
    if (GetTempFileNameW(folder.c_str(), L"~QV", 0, name) == 0) {
      m_error = LastError();
      return false;
    }
    // Delete-on-close: the system removes the file however the process ends. While
    // it is open others may only read it, so no sweep can take it.
    win32::FileHandle file =
        win32::Open(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, OPEN_ALWAYS,
                    FILE_FLAG_RANDOM_ACCESS | FILE_FLAG_DELETE_ON_CLOSE | FILE_ATTRIBUTE_NORMAL);
    if (file) {
      m_path = name;
      win32::FileHandle beside =
          win32::Open(name, GENERIC_READ, win32::kShareAll, OPEN_EXISTING, FILE_FLAG_RANDOM_ACCESS);
      if (beside) m_beside = win32::ToNumber(beside.Take());
      m_handle = win32::ToNumber(file.Take());
      m_owner = ProcessId();
      m_error = 0;
      return true;
    }
    m_error = LastError();
    DeleteFileW(name);
    // A sweep of another process may just be looking at the name.
    if (m_error != ERROR_SHARING_VIOLATION && m_error != ERROR_ACCESS_DENIED) return false;
  }
  return false;
}

void SwapFile::Close() noexcept {
  if (m_handle == -1) return;
  static_cast<void>(AskFault(Call::kCloseFile));  // closing cannot usefully fail
  const win32::FileHandle beside(win32::ToHandle(std::exchange(m_beside, -1)));
  const win32::FileHandle file(win32::ToHandle(std::exchange(m_handle, -1)));
}

bool SwapFile::Usable(std::int64_t, std::int64_t) {
  if (m_handle != -1 && m_owner == ProcessId()) return true;
  m_error = ERROR_INVALID_HANDLE;
  return false;
}

std::size_t SwapFile::ReadAt(std::int64_t offset, void* buffer, std::size_t size) {
  if (!Usable()) return 0;
  const HANDLE file = win32::ToHandle(m_handle);
  const std::size_t moved = win32::Seek(file, offset) ? win32::ReadNext(file, buffer, size) : 0;
  if (moved != size) m_error = LastError();
  return moved;
}

// Says with each piece where it lies: whose position it moves does not matter then.
std::size_t SwapFile::ReadBeside(std::int64_t offset, void* buffer, std::size_t size) const {
  if (m_beside == -1 || m_owner != ProcessId()) return 0;
  return win32::Transfer(Call::kReadFile, size, [&](std::size_t done, DWORD piece, DWORD& now) {
    const std::uint64_t from = static_cast<std::uint64_t>(offset) + done;
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(from & 0xFFFFFFFF);
    place.OffsetHigh = static_cast<DWORD>(from >> 32);
    return ReadFile(win32::ToHandle(m_beside), static_cast<char*>(buffer) + done, piece, &now,
                    &place) != 0;
  });
}

std::size_t SwapFile::WriteAt(std::int64_t offset, const void* buffer, std::size_t size) {
  if (!Usable()) return 0;
  const HANDLE file = win32::ToHandle(m_handle);
  const std::size_t moved = win32::Seek(file, offset) ? win32::WriteNext(file, buffer, size) : 0;
  if (moved != size) m_error = LastError();
  return moved;
}

// The end of the file is moved at once and its clusters with it: a full disk shows
// here and not when a block is written.
bool SwapFile::SetSize(std::int64_t size) {
  if (!Usable()) return false;
  const HANDLE file = win32::ToHandle(m_handle);
  if (!win32::Injected(Call::kExtendFile) && win32::Seek(file, size) && SetEndOfFile(file) != 0) {
    return true;
  }
  m_error = LastError();
  return false;
}

// Only sparse files have holes, and a sparse file reserves nothing.
bool SwapFile::Discard(std::int64_t, std::int64_t) { return false; }

bool SwapFile::Reserve(std::int64_t, std::int64_t) {
  if (!Usable()) return false;
  if (!win32::Injected(Call::kExtendFile)) return true;
  m_error = LastError();
  return false;
}

std::string SwapFile::Error() const {
  return ToUtf8(m_path.native()) + ": " + std::system_category().message(m_error);
}

}  // namespace korin::platform
