#pragma once

#include <cstddef>
#include <filesystem>
#include <vector>

#include "platform/new_file.h"

namespace korin {

// A file that appears whole or not at all: bytes go to a temporary file in the same
// folder that only its user can read; it takes the name at Commit, once the medium
// holds it, and is removed if Commit is not reached. What a killed process left goes
// when the next output file is begun in the same folder.
// A symbolic link is followed, so that it keeps pointing at the new file. Only a
// regular file is ever replaced, never a device or pipe.
class OutputFile {
 public:
  // Throws FileError when the temporary file cannot be made.
  explicit OutputFile(const std::filesystem::path& file);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  const std::filesystem::path& Name() const { return m_name; }

  // False when the medium refuses; Fail() then tells why.
  [[nodiscard]] bool TryWrite(const void* bytes, std::size_t count) noexcept;
  void Write(const void* bytes, std::size_t count);  // throws FileError instead
  // Closes, then replaces the file. Throws FileError.
  void Commit();
  // Throws the FileError of the last refusal.
  [[noreturn]] void Fail() const;

 private:
  bool Flush() noexcept;

  std::filesystem::path m_name;    // as the caller gave it, for messages
  std::filesystem::path m_target;  // what is replaced
  platform::NewFile m_file;
  std::vector<char> m_buffer;  // bytes on their way
  std::size_t m_buffered = 0;
};

}  // namespace korin
