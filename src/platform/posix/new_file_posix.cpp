#include "platform/new_file.h"

#include <sys/resource.h>

#include <utility>

#include "platform/posix/file_calls.h"

namespace korin::platform {

namespace {

constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;

int Make(const std::filesystem::path& file, mode_t mode) {
  return posix::Retry(Call::kOpenFile, [&] { return open(file.c_str(), kFlags, mode); });
}

bool Remove(const std::filesystem::path& file) {
  return posix::Retry(Call::kRemoveFile, [&] { return unlink(file.c_str()); }) == 0;
}

// Writing past the process's limit would end it.
bool IsWithinLimit(int file, std::size_t size) {
  rlimit limit{};
  if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return true;
  const off_t at = lseek(file, 0, SEEK_CUR);
  if (at >= 0 && static_cast<rlim_t>(at) <= limit.rlim_cur &&
      size <= limit.rlim_cur - static_cast<rlim_t>(at)) {
    return true;
  }
  errno = EFBIG;
  return false;
}

}  // namespace

NewFile::~NewFile() {
  const posix::Descriptor closing(static_cast<int>(m_handle));
  if (!m_path.empty()) Remove(m_path);
}

bool NewFile::Fail() {
  m_error = std::error_code(errno, std::generic_category());
  return false;
}

bool NewFile::Create(const std::filesystem::path& file) {
  std::filesystem::path kept(file);  // nothing may fail once the file is there
  // What the process allows new files is asked with an empty one: the mask itself
  // can only be read by changing it, which other threads would notice.
  struct stat info {};
  {
    const posix::Descriptor probe(Make(file, 0666));
    if (!probe) return Fail();
    const bool known = fstat(probe.Get(), &info) == 0;
    if (!Remove(file) || !known) return Fail();
  }
  m_handle = Make(file, S_IRUSR | S_IWUSR);
  if (m_handle < 0) return Fail();
  m_path = std::move(kept);
  m_mode = info.st_mode & 0777;
  return true;
}

bool NewFile::Write(const void* bytes, std::size_t size) {
  if (!IsWithinLimit(static_cast<int>(m_handle), size)) return Fail();
  const std::size_t written =
      posix::Transfer(Call::kWriteFile, size, [&](std::size_t done, std::size_t piece) {
        return write(static_cast<int>(m_handle), static_cast<const char*>(bytes) + done, piece);
      });
  return written == size || Fail();
}

bool NewFile::Publish(const std::filesystem::path& target) {
  posix::Descriptor file(static_cast<int>(std::exchange(m_handle, -1)));
  struct stat old {};
  const bool replaces = lstat(target.c_str(), &old) == 0 && S_ISREG(old.st_mode);
  const mode_t mode = replaces ? old.st_mode & 0777 : static_cast<mode_t>(m_mode);
  // Closed before it takes the name: some systems tell only then that the disk is full.
  if (!posix::Sync(file.Get())) return Fail();
  // Where the file system keeps no modes there is nothing to open up.
  static_cast<void>(fchmod(file.Get(), mode));
  if (!file.Close() || !posix::Rename(m_path.c_str(), target.c_str())) return Fail();
  m_path.clear();
  return true;
}

}  // namespace korin::platform
