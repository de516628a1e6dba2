#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

// Small files that several processes read and replace as a whole. Symbolic links to
// such a file are followed: its target is what is read, locked and replaced. Nothing
// throws but std::bad_alloc; every failure is an answer.
namespace korin::platform {

enum class FileState : std::uint8_t {
  kRead,      // the bytes are there
  kAbsent,    // there is no such file, though its name could be looked up
  kUnusable,  // not readable, not a regular file, larger than asked for, broken medium
};

struct SmallFile {
  FileState state = FileState::kUnusable;
  std::string bytes;
};

// Reads a regular file of at most `limit` bytes. Never blocks on a pipe or device.
SmallFile ReadSmallFile(const std::filesystem::path& file, std::size_t limit);

// Held by whoever replaces a file: keeps other holders out, in this process and in
// others, until it is destroyed or its process dies. Readers need none. It is a file
// beside the one it protects, named like that with ".lock" behind, and removed at
// the end.
class ReplaceLock {
 public:
  // Makes the folder of `file` when it is missing (for the user only), then waits up
  // to `patience` for the lock. No value: the folder cannot be written, or a holder
  // does not let go. A file system without locks grants it to everybody.
  static std::optional<ReplaceLock> Acquire(const std::filesystem::path& file,
                                            std::chrono::milliseconds patience);
  ReplaceLock(ReplaceLock&& other) noexcept;
  ReplaceLock& operator=(ReplaceLock&&) = delete;
  ~ReplaceLock();

  // Replaces the whole file: readers see the old bytes or the new ones, also after
  // a crash. An existing file keeps its mode and owner; a new one is the user's
  // alone. False: the file is as it was, because it is marked read-only, has another
  // owner, or the medium failed.
  bool Replace(std::string_view bytes) const;

 private:
  ReplaceLock(std::filesystem::path target, std::filesystem::path lockFile, std::intptr_t handle);

  std::filesystem::path m_target;
  std::filesystem::path m_lockFile;
  std::intptr_t m_handle;  // of the lock file; -1: moved from
};

}  // namespace korin::platform
