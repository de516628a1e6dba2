#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <thread>
#include <utility>

#include "platform/fault.h"

// System calls on descriptors with the fault seam, retries and clean-up around them.
namespace korin::platform::posix {

// True when a test wants the call to fail; errno is set as the system would.
inline bool Injected(Call call) {
  for (;;) {
    switch (AskFault(call)) {
      case Fault::kNone:
      case Fault::kShort:
        return false;
      case Fault::kInterrupted:
        continue;  // every call below is made again after a signal
      case Fault::kNoMemory:
        errno = ENOMEM;
        return true;
      case Fault::kNoSpace:
        errno = ENOSPC;
        return true;
      case Fault::kIoError:
        errno = EIO;
        return true;
    }
  }
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

// Moves all of `size` bytes; `step(done, piece)` is a read or write of a piece.
template <typename Step>
bool TransferAll(Call call, std::size_t size, Step step) {
  constexpr std::size_t kPiece = std::size_t{1} << 30;  // the system cuts near 2 GiB
  for (std::size_t done = 0; done < size;) {
    std::size_t piece = std::min(size - done, kPiece);
    switch (AskFault(call)) {
      case Fault::kNone:
        break;
      case Fault::kShort:
        piece = (piece + 1) / 2;
        break;
      case Fault::kInterrupted:
        continue;
      default:
        return false;
    }
    const ssize_t now = step(done, piece);
    if (now < 0 && errno == EINTR) continue;
    if (now <= 0) return false;
    done += static_cast<std::size_t>(now);
  }
  return true;
}

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int file) : m_file(file) {}
  Descriptor(Descriptor&& other) noexcept : m_file(other.Take()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(m_file, other.m_file);
    return *this;
  }
  ~Descriptor() {
    if (m_file < 0) return;
    static_cast<void>(AskFault(Call::kCloseFile));  // nothing to be done about it
    close(m_file);
  }
  int Get() const { return m_file; }
  int Take() { return std::exchange(m_file, -1); }
  explicit operator bool() const { return m_file >= 0; }

 private:
  int m_file = -1;
};

// Something of this user that nobody else may open.
inline bool IsPrivateFile(const struct stat& info) {
  return S_ISREG(info.st_mode) && info.st_uid == geteuid() &&
         (info.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

inline bool IsSameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
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
