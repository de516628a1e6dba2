#include "platform/atomic_file.h"

#include <algorithm>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "platform/win32/file_calls.h"

namespace korin::platform {

namespace fs = std::filesystem;

namespace {

using win32::FileHandle;

bool IsAbsent(DWORD error) {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

// The file that a name stands for after all links; the name itself, made absolute,
// where there is none yet.
fs::path Target(const fs::path& file) {
  const FileHandle open(CreateFileW(file.c_str(), 0, win32::kShareAll, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
  if (open) {
    std::wstring name(32768, L'\0');
    const DWORD size =
        GetFinalPathNameByHandleW(open.Get(), name.data(), static_cast<DWORD>(name.size()), 0);
    if (size > 0 && size < name.size()) return fs::path(name.substr(0, size));
  }
  std::error_code error;
  const fs::path absolute = fs::absolute(file, error);
  return error ? file : absolute;
}

// Gives the new file the permissions of the old one. False: the old one must not be
// replaced.
bool TakeOver(const fs::path& fresh, const fs::path& target) {
  const DWORD attributes = GetFileAttributesW(target.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return IsAbsent(GetLastError());
  if ((attributes & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_DIRECTORY)) != 0) return false;
  DWORD size = 0;
  GetFileSecurityW(target.c_str(), DACL_SECURITY_INFORMATION, nullptr, 0, &size);
  std::vector<unsigned char> rights(size);
  if (size > 0 && GetFileSecurityW(target.c_str(), DACL_SECURITY_INFORMATION, rights.data(), size,
                                   &size) != 0) {
    // File systems without permissions have none to take over.
    SetFileSecurityW(fresh.c_str(), DACL_SECURITY_INFORMATION, rights.data());
  }
  return true;
}

}  // namespace

SmallFile ReadSmallFile(const fs::path& file, std::size_t limit) {
  SmallFile result;
  const FileHandle open =
      win32::Open(file, GENERIC_READ, win32::kShareAll, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL);
  if (!open) {
    result.state = IsAbsent(GetLastError()) ? FileState::kAbsent : FileState::kUnusable;
    return result;
  }
  LARGE_INTEGER size;
  if (!win32::IsPlainFile(open.Get()) || GetFileSizeEx(open.Get(), &size) == 0 ||
      static_cast<std::uint64_t>(size.QuadPart) > limit) {
    return result;
  }
  std::string bytes(static_cast<std::size_t>(size.QuadPart), '\0');
  if (win32::ReadNext(open.Get(), bytes.data(), bytes.size()) != bytes.size()) return result;
  result.state = FileState::kRead;
  result.bytes = std::move(bytes);
  return result;
}

ReplaceLock::ReplaceLock(fs::path target, fs::path lockFile, std::intptr_t handle)
    : m_target(std::move(target)), m_lockFile(std::move(lockFile)), m_handle(handle) {}

ReplaceLock::ReplaceLock(ReplaceLock&& other) noexcept
    : m_target(std::move(other.m_target)),
      m_lockFile(std::move(other.m_lockFile)),
      m_handle(std::exchange(other.m_handle, -1)) {}

// The lock file goes with its handle.
ReplaceLock::~ReplaceLock() {
  if (m_handle != -1) CloseHandle(win32::ToHandle(m_handle));
}

std::optional<ReplaceLock> ReplaceLock::Acquire(const fs::path& file,
                                                std::chrono::milliseconds patience) {
  fs::path target = Target(file);
  fs::path lockFile = target;
  lockFile += ".lock";
  std::error_code ignored;  // a failure shows when the file is opened
  fs::create_directories(target.parent_path(), ignored);

  const auto end = std::chrono::steady_clock::now() + patience;
  auto pause = std::chrono::microseconds(500);
  for (;;) {
    // Shared with nobody: having it open is the lock. A killed holder's goes too.
    FileHandle lock;
    if (!win32::Injected(Call::kLockFile)) {
      lock = win32::Open(lockFile, GENERIC_READ | GENERIC_WRITE, 0, OPEN_ALWAYS,
                         FILE_FLAG_DELETE_ON_CLOSE | FILE_FLAG_OPEN_REPARSE_POINT);
    }
    if (lock)
      return ReplaceLock(std::move(target), std::move(lockFile), win32::ToNumber(lock.Take()));
    // A file about to vanish denies access for a moment.
    const DWORD error = GetLastError();
    if (error != ERROR_SHARING_VIOLATION && error != ERROR_ACCESS_DENIED) return std::nullopt;
    if (std::chrono::steady_clock::now() >= end) return std::nullopt;
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2, std::chrono::microseconds(5000));
  }
}

bool ReplaceLock::Replace(std::string_view bytes) const {
  if (m_handle == -1) return false;
  fs::path fresh = m_target;
  fresh += ".new";
  {
    // One may be left by a holder of this lock that was killed. Links cannot be refused
    // while a file is overwritten.
    DeleteFileW(fresh.c_str());
    FileHandle file = win32::Open(fresh, GENERIC_WRITE, 0, CREATE_NEW,
                                  FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT);
    if (!file) return false;
    const bool whole = TakeOver(fresh, m_target) &&
                       win32::WriteNext(file.Get(), bytes.data(), bytes.size()) == bytes.size() &&
                       win32::Sync(file.Get()) && !win32::Injected(Call::kCloseFile) &&
                       file.Close();
    if (whole && win32::Rename(fresh, m_target)) return true;
  }
  if (!win32::Injected(Call::kRemoveFile)) DeleteFileW(fresh.c_str());
  return false;
}

}  // namespace korin::platform
