#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

namespace korin::platform {

// A new file that takes its name when it is complete. Until then nobody but its user
// can read it, no sweep takes it, and unless it is published it is removed. Every
// failure is an answer with a reason.
class NewFile {
 public:
  NewFile() = default;
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  ~NewFile();

  // Makes `file`, never following a link; false when there is something by that name,
  // or a sweep came in between (`Error()` is then std::errc::file_exists), or it cannot
  // be made.
  bool Create(const std::filesystem::path& file);
  // A name for such a file. Short: the target's may already be as long as names get.
  static std::string TemporaryName(unsigned number) {
    return ".korin-" + std::to_string(number) + ".tmp";
  }
  // Removes files of such names that ended processes left in `folder`: this user's
  // regular files that no living process holds.
  static void SweepLeftovers(const std::filesystem::path& folder) noexcept;
  bool Write(const void* bytes, std::size_t size);
  // Once the medium holds every byte, gives the file the name `target` on the same
  // volume, in place of what had it, and closes it. It may then be read by whom the old
  // file was open to, or by default any new one is.
  bool Publish(const std::filesystem::path& target);

  std::error_code Error() const { return m_error; }

 private:
  bool Fail();
  static bool IsTemporaryName(std::string_view name) {
    const std::size_t digits = name.find_first_of("0123456789");
    const std::size_t end = name.find_first_not_of("0123456789", digits);
    return digits != name.npos && end != name.npos && name.substr(0, digits) == ".korin-" &&
           name.substr(end) == ".tmp";
  }

  std::filesystem::path m_path;  // empty: none, or published
  std::intptr_t m_handle = -1;
  std::uint32_t m_mode = 0;  // of a file made in the ordinary way
  std::error_code m_error;
};

}  // namespace korin::platform
