// Objects in the system's shared-memory name space. They outlive their users, so
// life is counted with locks: who uses one holds it shared, and whoever can lock it
// exclusively knows that nobody does and may reset or remove it.
#include "platform/shared_mapping.h"

#include <sys/mman.h>

#include "platform/posix/file_calls.h"
#include "platform/process.h"

namespace korin::platform {

namespace {

using posix::Descriptor;
using posix::LockResult;
using posix::TryLock;

constexpr int kMappingAttempts = 100;

std::string ObjectName(std::string_view name) { return "/" + std::string(name); }

Descriptor OpenObject(const std::string& object, int create) {
  return Descriptor(posix::Retry(Call::kOpenFile, [&] {
    return shm_open(object.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | create, S_IRUSR | S_IWUSR);
  }));
}

bool IsPrivateObject(const Descriptor& file) {
  struct stat info {};
  return fstat(file.Get(), &info) == 0 && posix::IsPrivateFile(info);
}

// True when the name still leads to the open object.
bool IsNamed(const Descriptor& file, const std::string& object) {
  struct stat opened {};
  struct stat named {};
  const Descriptor again = OpenObject(object, 0);
  return again && fstat(file.Get(), &opened) == 0 && fstat(again.Get(), &named) == 0 &&
         opened.st_nlink > 0 && posix::IsSameFile(opened, named);
}

bool HasSize(const Descriptor& file, std::int64_t bytes) {
  struct stat info {};
  return fstat(file.Get(), &info) == 0 && info.st_size == bytes;
}

bool SetSize(const Descriptor& file, std::int64_t bytes) {
  return posix::Retry(Call::kExtendFile,
                      [&] { return ftruncate(file.Get(), static_cast<off_t>(bytes)); }) == 0;
}

// For whoever holds the object exclusively: a name that still leads to it cannot
// change meanwhile.
void RemoveName(const Descriptor& file, const std::string& object) {
  if (!IsNamed(file, object)) return;
  posix::Retry(Call::kRemoveFile, [&] { return shm_unlink(object.c_str()); });
}

// Gives the use of an object up and removes it when that was the last. Whoever is
// in the way of the exclusive lock uses the object or is about to remove it.
void LetGo(const Descriptor& file, const std::string& object) {
  posix::Retry(Call::kLockFile, [&] { return flock(file.Get(), LOCK_UN); });
  if (TryLock(file.Get(), LOCK_EX) == LockResult::kTaken) RemoveName(file, object);
}

// Takes the shared lock, resetting the object before when nobody else is there.
bool Join(const Descriptor& file, std::int64_t bytes, posix::Patience& patience) {
  for (;;) {
    LockResult result = TryLock(file.Get(), LOCK_EX);
    if (result == LockResult::kTaken && !(SetSize(file, 0) && SetSize(file, bytes))) return false;
    // From exclusive to shared the lock is free for a moment: another process may
    // reset the object once more before this one has looked at it.
    if (result != LockResult::kFailed) result = TryLock(file.Get(), LOCK_SH);
    if (result == LockResult::kTaken) return true;
    if (result == LockResult::kFailed || !patience.Wait()) return false;
  }
}

}  // namespace

bool SharedMapping::Open(std::string_view name, std::int64_t bytes) {
  if (IsOpen()) return m_name == name && m_size == bytes;
  if (bytes <= 0 || bytes > FileSizeLimit()) return false;
  const std::string object = ObjectName(name);
  std::string kept(name);
  posix::Patience patience;
  for (int attempt = 0; attempt < kMappingAttempts; ++attempt) {
    Descriptor file = OpenObject(object, O_CREAT);
    if (!file || !IsPrivateObject(file)) return false;
    if (!Join(file, bytes, patience)) {
      LetGo(file, object);
      return false;
    }
    // The last user may have removed the name meanwhile, or one of another size
    // may hold it.
    if (IsNamed(file, object) && HasSize(file, bytes)) {
      m_handle = file.Take();
      m_name = std::move(kept);
      m_size = bytes;
      m_owner = ProcessId();
      return true;
    }
    LetGo(file, object);
    if (!patience.Wait()) return false;
  }
  return false;
}

void SharedMapping::Close() noexcept {
  if (!IsOpen()) return;
  const Descriptor file(static_cast<int>(std::exchange(m_handle, -1)));
  m_size = 0;
  // A forked child shares the lock with its parent: unlocking would take both away.
  if (m_owner != ProcessId()) return;
  try {
    LetGo(file, ObjectName(m_name));
  } catch (...) {  // no memory for the name: the next to open it resets the object
  }
}

bool SharedMapping::Contains(std::int64_t offset, std::size_t size) const {
  return IsOpen() && offset >= 0 && offset <= m_size &&
         size <= static_cast<std::uint64_t>(m_size - offset);
}

bool SharedMapping::ReadAt(std::int64_t offset, void* buffer, std::size_t size) const {
  return Contains(offset, size) &&
         posix::Transfer(Call::kReadFile, size, [&](std::size_t done, std::size_t piece) {
           return pread(static_cast<int>(m_handle), static_cast<char*>(buffer) + done, piece,
                        static_cast<off_t>(offset) + static_cast<off_t>(done));
         }) == size;
}

bool SharedMapping::WriteAt(std::int64_t offset, const void* buffer, std::size_t size) const {
  return Contains(offset, size) && posix::MayReach(offset, static_cast<std::int64_t>(size)) &&
         posix::Transfer(Call::kWriteFile, size, [&](std::size_t done, std::size_t piece) {
           return pwrite(static_cast<int>(m_handle), static_cast<const char*>(buffer) + done, piece,
                         static_cast<off_t>(offset) + static_cast<off_t>(done));
         }) == size;
}

bool IsSharedMappingHeld(std::string_view name) noexcept {
  try {
    const std::string object = ObjectName(name);
    // A descriptor of its own: trying for the exclusive lock on one that holds the
    // shared lock would lose that.
    const Descriptor file = OpenObject(object, 0);
    // None, or a foreign one; any other failure says nothing, as below.
    if (!file) return errno != ENOENT && errno != EACCES && errno != ELOOP;
    if (!IsPrivateObject(file)) return false;
    const LockResult result = TryLock(file.Get(), LOCK_EX);
    if (result == LockResult::kTaken) RemoveName(file, object);
    return result != LockResult::kTaken;
  } catch (...) {
    return true;  // unknown: whoever asks spares what is held
  }
}

}  // namespace korin::platform
