#include "platform/new_file.h"

#include <utility>

#include "platform/posix/leftovers.h"

namespace korin::platform {

namespace {

constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;

using posix::Descriptor;

int Make(const std::filesystem::path& file, mode_t mode) {
  return posix::Retry(Call::kOpenFile, [&] { return open(file.c_str(), kFlags, mode); });
}

bool Remove(const std::filesystem::path& file) {
  return posix::Retry(Call::kRemoveFile, [&] { return unlink(file.c_str()); }) == 0;
}

}  // namespace

NewFile::~NewFile() {
  const Descriptor closing(static_cast<int>(m_handle));
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
    const Descriptor probe(Make(file, 0666));
    if (!probe) return Fail();
    const bool known = fstat(probe.Get(), &info) == 0;
    // Another process may have swept it away.
    if ((!Remove(file) && errno != ENOENT) || !known) return Fail();
  }
  Descriptor made(Make(file, S_IRUSR | S_IWUSR));
  if (!made) return Fail();
  // A sweep that saw the file before it was locked takes it for a leftover. Where the
  // file system has no locks, sweeps cannot lock either and spare it.
  if (posix::TryLock(made.Get(), LOCK_EX) == posix::LockResult::kBusy ||
      !posix::IsNamed(made.Get(), file.c_str())) {
    errno = EEXIST;
    return Fail();
  }
  m_handle = made.Take();
  m_path = std::move(kept);
  m_mode = info.st_mode & 0777;
  return true;
}

void NewFile::SweepLeftovers(const std::filesystem::path& folder) noexcept {
  try {
    const Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened) return;
    for (const std::string& name : posix::List(opened.Get())) {
      struct stat info {};
      if (!IsTemporaryName(name) ||
          fstatat(opened.Get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 ||
          !S_ISREG(info.st_mode) || info.st_uid != geteuid()) {
        continue;
      }
      const Descriptor lock = posix::TakeAbandoned(opened.Get(), name.c_str(), info);
      if (lock) posix::Remove(opened.Get(), name.c_str(), 0);
    }
  } catch (...) {  // no memory for the names: the next one sweeps
  }
}

bool NewFile::Write(const void* bytes, std::size_t size) {
  const off_t at = lseek(static_cast<int>(m_handle), 0, SEEK_CUR);
  if (at < 0 || !posix::MayReach(at, static_cast<std::int64_t>(size))) return Fail();
  const std::size_t written =
      posix::Transfer(Call::kWriteFile, size, [&](std::size_t done, std::size_t piece) {
        return write(static_cast<int>(m_handle), static_cast<const char*>(bytes) + done, piece);
      });
  return written == size || Fail();
}

bool NewFile::Publish(const std::filesystem::path& target) {
  const Descriptor file(static_cast<int>(std::exchange(m_handle, -1)));
  struct stat old {};
  const bool replaces = lstat(target.c_str(), &old) == 0 && S_ISREG(old.st_mode);
  const mode_t mode = replaces ? old.st_mode & 0777 : static_cast<mode_t>(m_mode);
  if (!posix::Sync(file.Get())) return Fail();
  // Where the file system keeps no modes there is nothing to open up.
  static_cast<void>(fchmod(file.Get(), mode));
  // Some systems tell only at closing that the disk is full. The lock stays until the
  // file has its name, or a sweep would take it.
  if (!posix::CloseCopy(file.Get()) || !posix::Rename(m_path.c_str(), target.c_str())) {
    return Fail();
  }
  m_path.clear();
  return true;
}

}  // namespace korin::platform
