#include "platform/atomic_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/fault.h"
#include "platform/process.h"

namespace korin::platform {

namespace fs = std::filesystem;

namespace {

// Closes on every way out; Close tells whether the system was content.
class Descriptor {
 public:
  explicit Descriptor(int fd) : m_fd(fd) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { Close(); }

  // An interrupted close has closed all the same.
  bool Close() {
    if (m_fd < 0) return true;
    const Fault fault = AskFault(Call::kCloseFile);
    const bool closed = ::close(std::exchange(m_fd, -1)) == 0 || errno == EINTR;
    return closed &&
           (fault == Fault::kNone || fault == Fault::kShort || fault == Fault::kInterrupted);
  }
  int Release() { return std::exchange(m_fd, -1); }
  int Get() const { return m_fd; }

 private:
  int m_fd;
};

// Sets errno for an injected fault; false: none, make the call.
bool Injected(Call call) {
  switch (AskFault(call)) {
    case Fault::kNone:
    case Fault::kShort:
      return false;
    case Fault::kInterrupted:
      errno = EINTR;
      return true;
    case Fault::kNoMemory:
      errno = ENOMEM;
      return true;
    case Fault::kNoSpace:
      errno = ENOSPC;
      return true;
    case Fault::kIoError:
      break;
  }
  errno = EIO;
  return true;
}

int Open(const fs::path& file, int flags, mode_t mode = 0) {
  int fd = -1;
  do {
    fd = Injected(Call::kOpenFile) ? -1 : ::open(file.c_str(), flags | O_CLOEXEC | O_NOCTTY, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

// Moves up to `size` bytes in one call to the system; -1 on failure.
template <typename Transfer>
ssize_t Move(Call call, std::size_t size, Transfer transfer) {
  for (;;) {
    const Fault fault = AskFault(call);
    if (fault == Fault::kInterrupted) continue;
    if (fault != Fault::kNone && fault != Fault::kShort) return -1;
    const std::size_t part = fault == Fault::kShort ? std::max<std::size_t>(size / 2, 1) : size;
    const ssize_t moved = transfer(part);
    if (moved >= 0 || errno != EINTR) return moved;
  }
}

bool WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t moved = Move(Call::kWriteFile, bytes.size(),
                               [&](std::size_t part) { return ::write(fd, bytes.data(), part); });
    if (moved <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(moved));
  }
  return true;
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

bool SameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Is the name still that of the open file?
bool StillNamed(int fd, const fs::path& name) {
  struct stat open {};
  struct stat named {};
  return ::fstat(fd, &open) == 0 && ::lstat(name.c_str(), &named) == 0 && SameFile(open, named);
}

enum class Try { kLocked, kHeld, kFailed };

Try TryLock(int fd) {
  for (;;) {
    if (!Injected(Call::kLockFile) && ::flock(fd, LOCK_EX | LOCK_NB) == 0) return Try::kLocked;
    if (errno == EINTR) continue;
    if (errno == EWOULDBLOCK) return Try::kHeld;
    if (errno == ENOLCK || errno == EOPNOTSUPP || errno == ENOSYS) return Try::kLocked;
    return Try::kFailed;
  }
}

void Remove(const fs::path& file) {
  if (!Injected(Call::kRemoveFile)) ::unlink(file.c_str());
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
  const Descriptor fd(Open(file, O_RDONLY | O_NONBLOCK));
  if (fd.Get() < 0) {
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
    const ssize_t moved = Move(Call::kReadFile, sizeof buffer,
                               [&](std::size_t part) { return ::read(fd.Get(), buffer, part); });
    if (moved < 0) return result;
    if (moved == 0) break;
    bytes.append(buffer, static_cast<std::size_t>(moved));
    if (bytes.size() > limit) return result;  // it grew meanwhile
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
  if (StillNamed(fd.Get(), m_lockFile)) Remove(m_lockFile);
}

std::optional<ReplaceLock> ReplaceLock::Acquire(const fs::path& file,
                                                std::chrono::milliseconds patience) {
  const fs::path target = Target(file);
  fs::path lockFile = target;
  lockFile += ".lock";
  MakeFolders(target.parent_path());

  const auto end = std::chrono::steady_clock::now() + patience;
  auto pause = std::chrono::microseconds(100);
  for (;;) {
    Descriptor fd(Open(lockFile, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK, 0600));
    if (fd.Get() < 0) return std::nullopt;
    const Try outcome = TryLock(fd.Get());
    if (outcome == Try::kFailed) return std::nullopt;
    if (outcome == Try::kLocked && StillNamed(fd.Get(), lockFile)) {
      return ReplaceLock(target, std::move(lockFile), fd.Release());
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
  int made = Open(fresh, flags, 0600);
  if (made < 0 && errno == EEXIST) {
    Remove(fresh);  // left by a holder of this lock that was killed
    made = Open(fresh, flags, 0600);
  }
  Descriptor fd(made);
  if (fd.Get() < 0) return false;
  // Closed before the name changes: some systems tell only then that the disk is full.
  const bool whole = TakeOver(fd.Get(), m_target) && WriteAll(fd.Get(), bytes) &&
                     ::fdatasync(fd.Get()) == 0 && fd.Close();
  if (whole && ::rename(fresh.c_str(), m_target.c_str()) == 0) return true;
  Remove(fresh);
  return false;
}

}  // namespace korin::platform
