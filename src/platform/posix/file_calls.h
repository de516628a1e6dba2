#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <thread>
#include <utility>

#include "platform/fault.h"
#include "platform/process.h"

// System calls on descriptors with the fault seam, retries and clean-up around them.
namespace korin::platform::posix {

// The system's number for a failure that a test wants; 0: none.
inline int ErrorOf(Fault fault) {
  switch (fault) {
    case Fault::kNone:
    case Fault::kShort:
    case Fault::kInterrupted:
      break;
    case Fault::kNoMemory:
      return ENOMEM;
    case Fault::kNoSpace:
      return ENOSPC;
    case Fault::kIoError:
      return EIO;
  }
  return 0;
}

// True when a test wants the call to fail; errno is set as the system would.
inline bool Injected(Call call) {
  Fault fault = AskFault(call);
  // Every call below is made again after a signal.
  while (fault == Fault::kInterrupted) fault = AskFault(call);
  const int error = ErrorOf(fault);
  if (error != 0) errno = error;
  return error != 0;
}

// Makes a call that answers -1 and errno on failure, again after each signal.
template <typename Make>
auto Retry(Call call, Make make) -> decltype(make()) {
  if (Injected(call)) return -1;
  for (;;) {
    const auto result = make();
    if (result != -1 || errno != EINTR) return result;
  }
}

// Whether a file may have `size` bytes behind `offset`; errno says why not. Writing past
// the process's own limit would end it.
inline bool MayReach(std::int64_t offset, std::int64_t size) {
  if (size <= FileSizeLimit() - offset) return true;
  errno = EFBIG;
  return false;
}

// Moves `size` bytes or as many as go and returns how many; `step(done, piece)` is a
// read or write of a piece. Fewer than `size`: errno says why, EIO at a file's end.
template <typename Step>
std::size_t Transfer(Call call, std::size_t size, Step step) {
  constexpr std::size_t kPiece = std::size_t{1} << 30;  // the system cuts near 2 GiB
  std::size_t done = 0;
  while (done < size) {
    const Fault fault = AskFault(call);
    if (fault == Fault::kInterrupted) continue;
    if (const int error = ErrorOf(fault); error != 0) {
      errno = error;
      return done;
    }
    std::size_t piece = std::min(size - done, kPiece);
    if (fault == Fault::kShort) piece = (piece + 1) / 2;
    const ssize_t now = step(done, piece);
    if (now < 0 && errno == EINTR) continue;
    if (now == 0) errno = EIO;
    if (now <= 0) return done;
    done += static_cast<std::size_t>(now);
  }
  return done;
}

// Closes on every way out; closing gives the lock back.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int file) : m_file(file) {}
  Descriptor(Descriptor&& other) noexcept : m_file(other.Take()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(m_file, other.m_file);
    return *this;
  }
  ~Descriptor() { Close(); }

  // Whether the system was content: some tell only now that the disk is full. An
  // interrupted close has closed all the same.
  bool Close() {
    if (m_file < 0) return true;
    const bool injected = Injected(Call::kCloseFile);
    return (close(std::exchange(m_file, -1)) == 0 || errno == EINTR) && !injected;
  }
  int Get() const { return m_file; }
  int Take() { return std::exchange(m_file, -1); }
  explicit operator bool() const { return m_file >= 0; }

 private:
  int m_file = -1;
};

// Whether the system is content with all that was written, as closing would tell. The
// file stays open, and locked.
inline bool CloseCopy(int file) {
  Descriptor copy(Retry(Call::kOpenFile, [&] { return fcntl(file, F_DUPFD_CLOEXEC, 0); }));
  return copy && copy.Close();
}

inline bool Sync(int file) {
  return Retry(Call::kSyncFile, [&] { return fdatasync(file); }) == 0;
}

inline bool Rename(const char* from, const char* to) {
  return Retry(Call::kRenameFile, [&] { return std::rename(from, to); }) == 0;
}

// Something of this user that nobody else may open.
inline bool IsPrivateFile(const struct stat& info) {
  return S_ISREG(info.st_mode) && info.st_uid == geteuid() &&
         (info.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

inline bool IsSameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Is `name`, relative to an open folder, still that of the open file?
inline bool IsNamed(int file, const char* name, int folder = AT_FDCWD) {
  struct stat opened {};
  struct stat named {};
  return fstat(file, &opened) == 0 && opened.st_nlink > 0 &&
         fstatat(folder, name, &named, AT_SYMLINK_NOFOLLOW) == 0 && IsSameFile(opened, named);
}

// Reserves disk space; 0 or the system's number of the failure. `mode` as fallocate
// takes it.
inline int Allocate(int file, int mode, std::int64_t offset, std::int64_t size) {
  // A memory file system gives back what an interrupted call had: where signals come
  // often, only a small piece is ever done.
  constexpr std::int64_t kLeast = 1 << 18;
  std::int64_t piece = size;
  do {
    if (fallocate(file, mode, static_cast<off_t>(offset), static_cast<off_t>(piece)) == 0) {
      offset += piece;
      size -= piece;
    } else if (errno == EINTR) {
      piece = std::max(piece / 2, kLeast);
    } else {
      return errno;
    }
    piece = std::min(piece, size);
  } while (size > 0);
  return 0;
}

// The file system, rather than the disk, has no room for the wish.
inline bool IsNotSupported(int error) {
  return error == EOPNOTSUPP || error == ENOSYS || error == EINVAL || error == ENOTSUP;
}

enum class LockResult { kTaken, kBusy, kFailed };

// Never waits. `mode` is LOCK_SH or LOCK_EX. A busy answer has dropped the lock
// that the descriptor held before.
inline LockResult TryLock(int file, int mode) {
  if (Retry(Call::kLockFile, [&] { return flock(file, mode | LOCK_NB); }) == 0) {
    return LockResult::kTaken;
  }
  return errno == EWOULDBLOCK ? LockResult::kBusy : LockResult::kFailed;
}

// All waits for other processes within one operation: a process that is stopped
// must not hang this one.
class Patience {
 public:
  // A short sleep; false when the time is up.
  bool Wait() {
    if (std::chrono::steady_clock::now() >= m_end) return false;
    std::this_thread::sleep_for(m_step);
    m_step = std::min<std::chrono::microseconds>(2 * m_step, std::chrono::milliseconds(10));
    return true;
  }

 private:
  std::chrono::steady_clock::time_point m_end =
      std::chrono::steady_clock::now() + std::chrono::seconds(1);
  std::chrono::microseconds m_step{50};
};

}  // namespace korin::platform::posix
