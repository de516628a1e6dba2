#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>

namespace korin::platform {

// A file under a fixed name in a folder that everybody may write to: one process
// writes it, another of the same user reads it. Symbolic links, files of other
// users, files that others may open and whatever is no regular file are refused
// and never touched.
//
// While a file is open it is marked as in use, so that no sweep of leftovers takes
// it; marks of several holders do not exclude each other. The name stays when the
// file is closed. In a file system without such marks the file is simply unmarked.
//
// Not thread safe. Nothing throws but std::bad_alloc.
class ExchangeFile {
 public:
  ExchangeFile() = default;
  ExchangeFile(const ExchangeFile&) = delete;
  ExchangeFile& operator=(const ExchangeFile&) = delete;
  ~ExchangeFile() { Close(); }

  // Makes an empty file for `bytes` bytes to come, in place of a file of this user
  // with the name. Their space is taken at once where the file system can, which
  // does not show in the file's size. False when something else has the name,
  // space is short, or the process may not write such a file.
  bool Create(const std::filesystem::path& path, std::int64_t bytes);
  // Opens an existing file to be read from its beginning.
  bool Open(const std::filesystem::path& path);
  bool IsOpen() const { return m_handle != -1; }
  std::int64_t Size() const;  // bytes; -1 when it cannot be asked

  // The next `size` bytes, all of them or false.
  bool Write(const void* buffer, std::size_t size);
  bool Read(void* buffer, std::size_t size);
  // Ends writing and says whether the file system took everything; the file stays
  // open and marked.
  bool Finish();
  // Removes the name if it still means this file, and gives the disk space back even
  // while another process has the file open.
  void Remove() noexcept;
  void Close() noexcept;

 private:
  std::intptr_t m_handle = -1;
  std::filesystem::path m_path;
};

}  // namespace korin::platform
