#include "platform/atomic_file.h"

#include <algorithm>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/posix/file_calls.h"
#include "platform/process.h"

namespace korin::platform {

namespace fs = std::filesystem;

namespace {

using posix::Descriptor;
using posix::LockResult;

Descriptor Open(const fs::path& file, int flags, mode_t mode = 0) {
  return Descriptor(posix::Retry(
      Call::kOpenFile, [&] { return ::open(file.c_str(), flags | O_CLOEXEC | O_NOCTTY, mode); }));
}

bool WriteAll(int fd, std::string_view bytes) {
  return posix::Transfer(Call::kWriteFile, bytes.size(), [&](std::size_t done, std::size_t n) {
           return ::write(fd, bytes.data() + done, n);
         }) == bytes.size();
}

// The file that a name stands for after all symbolic links. Where the target does
// not exist, links included, the name as far as it could be followed.
fs::path Target(const fs::path& file) {
  std::error_code error;
  const fs::path target = fs::weakly_canonical(file, error);
  return error ? file : target;
}

void MakeFolders(const fs::path& folder) {
  if (folder.empty() || ::access(folder.c_str(), F_OK) == 0) return;
  if (folder.has_relative_path()) MakeFolders(folder.parent_path());
  ::mkdir(folder.c_str(), 0700);  // a failure shows when the file is opened
}

// Where the file system has no locks, nobody can hold one.
LockResult TryLock(int fd) {
  const LockResult result = posix::TryLock(fd, LOCK_EX);
  const bool none = errno == ENOLCK || errno == EOPNOTSUPP || errno == ENOSYS;
  return result == LockResult::kFailed && none ? LockResult::kTaken : result;
}

void Remove(const fs::path& file) {
  if (!posix::Injected(Call::kRemoveFile)) ::unlink(file.c_str());
}

// Gives the new file what the old one had. False: the old one must not be replaced.
bool TakeOver(int fd, const fs::path& target) {
  struct stat old {};
  if (::lstat(target.c_str(), &old) != 0) return errno == ENOENT;
  struct stat made {};
  if (!S_ISREG(old.st_mode) || ::fstat(fd, &made) != 0) return false;
  // A file without any write bit is meant to stay, even for a user whom no
  // permission stops.
  if ((old.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0) return false;
  if (::access(target.c_str(), W_OK) != 0) return false;
  if ((old.st_uid != made.st_uid || old.st_gid != made.st_gid) &&
      ::fchown(fd, old.st_uid, old.st_gid) != 0) {
    return false;
  }
  return ::fchmod(fd, old.st_mode & 0777) == 0;
}

}  // namespace

SmallFile ReadSmallFile(const fs::path& file, std::size_t limit) {
  SmallFile result;
  const Descriptor fd = Open(file, O_RDONLY | O_NONBLOCK);
  if (!fd) {
    result.state = errno == ENOENT ? FileState::kAbsent : FileState::kUnusable;
    return result;
  }
  struct stat status {};
  if (::fstat(fd.Get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size < 0 ||
      static_cast<std::uint64_t>(status.st_size) > limit) {
    return result;
  }
  std::string bytes;
  char buffer[16384];
  for (;;) {
    bool ended = false;
    const std::size_t moved =
        posix::Transfer(Call::kReadFile, sizeof buffer, [&](std::size_t done, std::size_t n) {
          const ssize_t now = ::read(fd.Get(), buffer + done, n);
          ended = now == 0;
          return now;
        });
    bytes.append(buffer, moved);
    if (bytes.size() > limit) return result;  // it grew meanwhile
    if (ended) break;
    if (moved != sizeof buffer) return result;
  }
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

// The name goes before the lock does: whoever waited on this lock file sees that it
// has lost its name, and makes a new one.
ReplaceLock::~ReplaceLock() {
  if (m_handle < 0) return;
  const Descriptor fd(static_cast<int>(m_handle));
  if (posix::IsNamed(fd.Get(), m_lockFile.c_str())) Remove(m_lockFile);
}

std::optional<ReplaceLock> ReplaceLock::Acquire(const fs::path& file,
                                                std::chrono::milliseconds patience) {
  fs::path target = Target(file);
  fs::path lockFile = target;
  lockFile += ".lock";
  MakeFolders(target.parent_path());

  const auto end = std::chrono::steady_clock::now() + patience;
  auto pause = std::chrono::microseconds(100);
  for (;;) {
    Descriptor fd = Open(lockFile, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK, 0600);
    if (!fd) return std::nullopt;
    const LockResult outcome = TryLock(fd.Get());
    if (outcome == LockResult::kFailed) return std::nullopt;
    if (outcome == LockResult::kTaken && posix::IsNamed(fd.Get(), lockFile.c_str())) {
      return ReplaceLock(std::move(target), std::move(lockFile), fd.Take());
    }
    if (std::chrono::steady_clock::now() >= end) return std::nullopt;
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2, std::chrono::microseconds(5000));
  }
}

bool ReplaceLock::Replace(std::string_view bytes) const {
  if (m_handle < 0) return false;
  // Writing past the limit would end the process.
  if (static_cast<std::int64_t>(bytes.size()) > FileSizeLimit()) return false;
  fs::path fresh = m_target;
  fresh += ".new";
  constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
  Descriptor fd = Open(fresh, flags, 0600);
  if (!fd && errno == EEXIST) {
    Remove(fresh);  // left by a holder of this lock that was killed
    fd = Open(fresh, flags, 0600);
  }
  if (!fd) return false;
  // Closed before the name changes: some systems tell only then that the disk is full.
  const bool whole = TakeOver(fd.Get(), m_target) && WriteAll(fd.Get(), bytes) &&
                     posix::Sync(fd.Get()) && fd.Close();
  if (whole && posix::Rename(fresh.c_str(), m_target.c_str())) return true;
  Remove(fresh);
  return false;
}

}  // namespace korin::platform
