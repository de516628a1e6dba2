#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <system_error>

namespace korin::platform {

// A new file that takes its name when it is complete. Until then nobody but its user
// can read it; unless it is published it is removed. Every failure is an answer with
// a reason.
class NewFile {
 public:
  NewFile() = default;
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  ~NewFile();

  // Makes `file`, never following a link; false when there is something by that name
  // (`Error()` is then std::errc::file_exists) or it cannot be made.
  bool Create(const std::filesystem::path& file);
  bool Write(const void* bytes, std::size_t size);
  // Once the medium holds every byte, closes the file and gives it the name `target`
  // on the same volume, in place of what had it. It may then be read by whom the old
  // file was open to, or by default any new one is.
  bool Publish(const std::filesystem::path& target);

  std::error_code Error() const { return m_error; }

 private:
  bool Fail();

  std::filesystem::path m_path;  // empty: none, or published
  std::intptr_t m_handle = -1;
  std::uint32_t m_mode = 0;  // of a file made in the ordinary way
  std::error_code m_error;
};

}  // namespace korin::platform
