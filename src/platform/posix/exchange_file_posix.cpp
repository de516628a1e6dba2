#include "platform/exchange_file.h"

#include "platform/posix/file_calls.h"
#include "platform/process.h"

namespace korin::platform {

namespace {

using posix::Descriptor;
using posix::LockResult;

constexpr int kFileAttempts = 20;

bool RemoveName(const std::filesystem::path& path) {
  return posix::Retry(Call::kRemoveFile, [&] { return unlink(path.c_str()); }) == 0;
}

// Takes a former file out of the way; false for whatever is not this user's own
// file under this one name.
bool RemoveFormer(const std::filesystem::path& path) {
  struct stat named {};
  if (lstat(path.c_str(), &named) != 0) return errno == ENOENT;
  return S_ISREG(named.st_mode) && named.st_uid == geteuid() && named.st_nlink == 1 &&
         (RemoveName(path) || errno == ENOENT);
}

// Reserves space without changing the size: a writer that is killed leaves a file
// that is visibly too short.
bool ReserveSpace(int file, std::int64_t bytes) {
  if (posix::Injected(Call::kExtendFile)) return false;
  const int error = posix::Allocate(file, FALLOC_FL_KEEP_SIZE, 0, bytes);
  return error == 0 || posix::IsNotSupported(error);
}

}  // namespace

bool ExchangeFile::Create(const std::filesystem::path& path, std::int64_t bytes) {
  Close();
  if (bytes < 0 || bytes > FileSizeLimit()) return false;
  std::filesystem::path kept(path);
  posix::Patience patience;
  for (int attempt = 0; attempt < kFileAttempts; ++attempt) {
    Descriptor file(posix::Retry(Call::kOpenFile, [&] {
      return open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                  S_IRUSR | S_IWUSR);
    }));
    if (!file) {
      if (errno != EEXIST || !RemoveFormer(path)) return false;
      continue;
    }
    // Between making and marking it a sweep may have taken the file for a leftover.
    if (posix::TryLock(file.Get(), LOCK_SH) != LockResult::kBusy &&
        posix::IsNamed(file.Get(), path.c_str())) {
      if (bytes > 0 && !ReserveSpace(file.Get(), bytes)) {
        RemoveName(path);
        return false;
      }
      m_handle = file.Take();
      m_path = std::move(kept);
      return true;
    }
    if (!patience.Wait()) return false;
  }
  return false;
}

bool ExchangeFile::Open(const std::filesystem::path& path) {
  Close();
  std::filesystem::path kept(path);
  posix::Patience patience;
  // Not blocking: the name may belong to a pipe.
  Descriptor file(posix::Retry(Call::kOpenFile, [&] {
    return open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  }));
  struct stat info {};
  if (!file || fstat(file.Get(), &info) != 0 || !posix::IsPrivateFile(info)) return false;
  while (posix::TryLock(file.Get(), LOCK_SH) == LockResult::kBusy) {
    if (!patience.Wait()) return false;
  }
  if (!posix::IsNamed(file.Get(), path.c_str())) return false;
  m_handle = file.Take();
  m_path = std::move(kept);
  return true;
}

std::int64_t ExchangeFile::Size() const {
  struct stat info {};
  return IsOpen() && fstat(static_cast<int>(m_handle), &info) == 0 ? info.st_size : -1;
}

bool ExchangeFile::Write(const void* buffer, std::size_t size) {
  return IsOpen() &&
         posix::Transfer(Call::kWriteFile, size, [&](std::size_t done, std::size_t piece) {
           return write(static_cast<int>(m_handle), static_cast<const char*>(buffer) + done, piece);
         }) == size;
}

bool ExchangeFile::Read(void* buffer, std::size_t size) {
  return IsOpen() &&
         posix::Transfer(Call::kReadFile, size, [&](std::size_t done, std::size_t piece) {
           return read(static_cast<int>(m_handle), static_cast<char*>(buffer) + done, piece);
         }) == size;
}

bool ExchangeFile::Finish() { return IsOpen() && posix::CloseCopy(static_cast<int>(m_handle)); }

void ExchangeFile::Remove() noexcept {
  const int file = static_cast<int>(m_handle);
  if (!IsOpen() || !posix::IsNamed(file, m_path.c_str()) || !RemoveName(m_path)) return;
  // The writer still has it open, and with it the disk space.
  posix::Retry(Call::kExtendFile, [&] { return ftruncate(file, 0); });
}

void ExchangeFile::Close() noexcept {
  const Descriptor closing(static_cast<int>(std::exchange(m_handle, -1)));
}

}  // namespace korin::platform
