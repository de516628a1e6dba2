#include "platform/swap_file.h"

#include <cstdio>
#include <random>
#include <system_error>
#include <utility>

#include "platform/posix/file_calls.h"
#include "platform/process.h"

namespace korin::platform {

namespace {

constexpr int kNameTries = 1000;

}  // namespace

bool SwapFile::Create(const std::filesystem::path& folder) {
  Close();
  std::random_device random;
  for (int attempt = 0; attempt < kNameTries; ++attempt) {
    char name[24];
    std::snprintf(name, sizeof name, "~QV%08X.tmp", static_cast<unsigned>(random()));
    std::filesystem::path path = folder / name;
    posix::Descriptor file(posix::Retry(Call::kOpenFile, [&] {
      return open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                  S_IRUSR | S_IWUSR);
    }));
    if (!file) {
      if (errno == EEXIST) continue;
      m_error = errno;
      return false;
    }
    // A sweep of another process may have seen the file before it was locked and
    // removed it; then another name is tried. Where the file system has no locks,
    // sweeps cannot lock either and spare the file.
    posix::TryLock(file.Get(), LOCK_EX);
    if (posix::IsNamed(file.Get(), path.c_str())) {
      m_handle = file.Take();
      m_path = std::move(path);
      m_owner = ProcessId();
      m_error = 0;
      return true;
    }
    m_error = errno;
  }
  return false;
}

void SwapFile::Close() noexcept {
  if (m_handle == -1) return;
  const posix::Descriptor file(static_cast<int>(std::exchange(m_handle, -1)));
  // Removed by name only while the name still means this very file.
  if (m_owner == ProcessId() && !posix::Injected(Call::kRemoveFile) &&
      posix::IsNamed(file.Get(), m_path.c_str())) {
    unlink(m_path.c_str());
  }
}

bool SwapFile::Usable(std::int64_t offset, std::int64_t size) {
  if (m_handle == -1 || m_owner != ProcessId()) {
    m_error = EBADF;
  } else if (!posix::MayReach(offset, size)) {  // the limit was lowered meanwhile
    m_error = errno;
  } else {
    return true;
  }
  return false;
}

std::size_t SwapFile::ReadAt(std::int64_t offset, void* buffer, std::size_t size) {
  if (!Usable()) return 0;
  const std::size_t moved =
      posix::Transfer(Call::kReadFile, size, [&](std::size_t done, std::size_t n) {
        return pread(static_cast<int>(m_handle), static_cast<char*>(buffer) + done, n,
                     static_cast<off_t>(offset) + static_cast<off_t>(done));
      });
  if (moved != size) m_error = errno;
  return moved;
}

std::size_t SwapFile::ReadBeside(std::int64_t offset, void* buffer, std::size_t size) const {
  if (m_handle == -1 || m_owner != ProcessId()) return 0;
  return posix::Transfer(Call::kReadFile, size, [&](std::size_t done, std::size_t n) {
    return pread(static_cast<int>(m_handle), static_cast<char*>(buffer) + done, n,
                 static_cast<off_t>(offset) + static_cast<off_t>(done));
  });
}

std::size_t SwapFile::WriteAt(std::int64_t offset, const void* buffer, std::size_t size) {
  if (!Usable(offset, static_cast<std::int64_t>(size))) return 0;
  const std::size_t moved =
      posix::Transfer(Call::kWriteFile, size, [&](std::size_t done, std::size_t n) {
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
  if (posix::Injected(Call::kExtendFile) || fstat(file, &info) != 0) {
    m_error = errno;
    return false;
  }
  if (size > info.st_size) {
    if (!Usable(0, size)) return false;
    const int error = posix::Allocate(file, 0, info.st_size, size - info.st_size);
    if (error == 0) return true;
    if (!posix::IsNotSupported(error)) {
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
  return Usable() && posix::Allocate(static_cast<int>(m_handle),
                                     FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, offset, size) == 0;
}

bool SwapFile::Reserve(std::int64_t offset, std::int64_t size) {
  if (!Usable(offset, size)) return false;
  if (posix::Injected(Call::kExtendFile)) {
    m_error = errno;
    return false;
  }
  const int error = posix::Allocate(static_cast<int>(m_handle), 0, offset, size);
  if (error == 0 || posix::IsNotSupported(error)) return true;
  m_error = error;
  return false;
}

std::string SwapFile::Error() const {
  return m_path.string() + ": " + std::generic_category().message(m_error);
}

}  // namespace korin::platform
