#include "platform/swap_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <random>
#include <system_error>

#include "platform/fault.h"
#include "platform/process.h"

namespace korin::platform {

namespace {

constexpr int kNameTries = 1000;

// Sets errno as the fault would; true when the call must not be made.
bool Injected(Call call) {
  for (;;) {
    switch (AskFault(call)) {
      case Fault::kNone:
      case Fault::kShort:
        return false;
      case Fault::kInterrupted:
        continue;  // what a retry loop does with EINTR
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

// Moves all bytes or as many as go; `step` is pread or pwrite of a piece.
template <typename Step>
std::size_t Transfer(Call call, std::size_t size, Step step) {
  constexpr std::size_t kPiece = std::size_t{1} << 30;  // the system cuts near 2 GiB
  std::size_t moved = 0;
  while (moved < size) {
    std::size_t piece = std::min(size - moved, kPiece);
    const Fault fault = AskFault(call);
    if (fault == Fault::kInterrupted) continue;
    if (fault == Fault::kShort) piece = (piece + 1) / 2;
    if (fault == Fault::kIoError || fault == Fault::kNoSpace || fault == Fault::kNoMemory) {
      errno = fault == Fault::kNoSpace ? ENOSPC : fault == Fault::kIoError ? EIO : ENOMEM;
      break;
    }
    const ssize_t now = step(moved, piece);
    if (now < 0 && errno == EINTR) continue;
    if (now == 0) errno = EIO;  // the file ends before its own high-water mark
    if (now <= 0) break;
    moved += static_cast<std::size_t>(now);
  }
  return moved;
}

int Allocate(int file, std::int64_t offset, std::int64_t size) {
#ifdef __linux__
  for (;;) {
    if (fallocate(file, 0, offset, size) == 0) return 0;
    if (errno != EINTR) return errno;
  }
#else
  static_cast<void>(file), static_cast<void>(offset), static_cast<void>(size);
  return EOPNOTSUPP;
#endif
}

bool NotSupported(int error) {
  return error == EOPNOTSUPP || error == ENOSYS || error == EINVAL || error == ENOTSUP;
}

}  // namespace

bool SwapFile::Create(const std::filesystem::path& folder) {
  Close();
  std::random_device random;
  for (int attempt = 0; attempt < kNameTries; ++attempt) {
    char name[24];
    std::snprintf(name, sizeof name, "~QV%08X.tmp", static_cast<unsigned>(random()));
    const std::filesystem::path path = folder / name;
    const int file = Injected(Call::kOpenFile)
                         ? -1
                         : open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                S_IRUSR | S_IWUSR);
    if (file < 0) {
      if (errno == EEXIST || errno == EINTR) continue;
      m_error = errno;
      return false;
    }
    // A sweep of another process may have seen the file before it was locked and
    // removed it; then another name is tried. Where the file system has no locks,
    // sweeps cannot lock either and spare the file.
    if (!Injected(Call::kLockFile)) {
      while (flock(file, LOCK_EX | LOCK_NB) != 0 && errno == EINTR) {
      }
    }
    struct stat opened {};
    struct stat named {};
    if (fstat(file, &opened) == 0 && opened.st_nlink > 0 && lstat(path.c_str(), &named) == 0 &&
        named.st_ino == opened.st_ino && named.st_dev == opened.st_dev) {
      m_handle = file;
      m_path = path;
      m_owner = ProcessId();
      m_error = 0;
      return true;
    }
    m_error = errno;
    close(file);
  }
  return false;
}

void SwapFile::Close() noexcept {
  if (m_handle == -1) return;
  const int file = static_cast<int>(m_handle);
  struct stat opened {};
  struct stat named {};
  // Removed by name only while the name still means this very file.
  if (m_owner == ProcessId() && !Injected(Call::kRemoveFile) && fstat(file, &opened) == 0 &&
      lstat(m_path.c_str(), &named) == 0 && named.st_ino == opened.st_ino &&
      named.st_dev == opened.st_dev) {
    unlink(m_path.c_str());
  }
  static_cast<void>(AskFault(Call::kCloseFile));  // closing cannot usefully fail
  close(file);
  m_handle = -1;
}

bool SwapFile::Usable() {
  if (m_handle == -1 || m_owner != ProcessId()) {
    m_error = EBADF;
    return false;
  }
  return true;
}

std::size_t SwapFile::ReadAt(std::int64_t offset, void* buffer, std::size_t size) {
  if (!Usable()) return 0;
  const std::size_t moved = Transfer(Call::kReadFile, size, [&](std::size_t done, std::size_t n) {
    return pread(static_cast<int>(m_handle), static_cast<char*>(buffer) + done, n,
                 static_cast<off_t>(offset) + static_cast<off_t>(done));
  });
  if (moved != size) m_error = errno;
  return moved;
}

std::size_t SwapFile::WriteAt(std::int64_t offset, const void* buffer, std::size_t size) {
  if (!Usable()) return 0;
  const std::size_t moved = Transfer(Call::kWriteFile, size, [&](std::size_t done, std::size_t n) {
    return pwrite(static_cast<int>(m_handle), static_cast<const char*>(buffer) + done, n,
                  static_cast<off_t>(offset) + static_cast<off_t>(done));
  });
  if (moved != size) m_error = errno;
  return moved;
}

bool SwapFile::SetSize(std::int64_t size) {
  if (!Usable()) return false;
  const int file = static_cast<int>(m_handle);
  struct stat info {};
  if (Injected(Call::kExtendFile) || fstat(file, &info) != 0) {
    m_error = errno;
    return false;
  }
  if (size > info.st_size) {
    const int error = Allocate(file, info.st_size, size - info.st_size);
    if (error == 0) return true;
    if (!NotSupported(error)) {
      m_error = error;
      // Part of the range may have been taken before the disk was full.
      if (ftruncate(file, info.st_size) != 0) return false;
      return false;
    }
  }
  while (ftruncate(file, static_cast<off_t>(size)) != 0) {
    if (errno == EINTR) continue;
    m_error = errno;
    return false;
  }
  return true;
}

bool SwapFile::Discard(std::int64_t offset, std::int64_t size) {
#ifdef __linux__
  return Usable() && fallocate(static_cast<int>(m_handle),
                               FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, offset, size) == 0;
#else
  static_cast<void>(offset), static_cast<void>(size);
  return false;
#endif
}

bool SwapFile::Reserve(std::int64_t offset, std::int64_t size) {
  if (!Usable()) return false;
  if (Injected(Call::kExtendFile)) {
    m_error = errno;
    return false;
  }
  const int error = Allocate(static_cast<int>(m_handle), offset, size);
  if (error == 0 || NotSupported(error)) return true;
  m_error = error;
  return false;
}

std::string SwapFile::Error() const {
  return m_path.string() + ": " + std::generic_category().message(m_error);
}

}  // namespace korin::platform
