#include "output_file.h"

#include <cstring>
#include <random>
#include <system_error>
#include <utility>

#include "korinimage/io/file_error.h"

namespace korin {

namespace {

namespace fs = std::filesystem;

constexpr int kNameTries = 100;
constexpr std::size_t kBuffer = 65536;

// The file that a name stands for once symbolic links are followed; a link to a
// file that does not exist yet included.
fs::path FollowLinks(const fs::path& name) {
  fs::path target = name;
  std::error_code error;
  for (int depth = 0; depth < 40 && fs::is_symlink(fs::symlink_status(target, error)); ++depth) {
    const fs::path next = fs::read_symlink(target, error);
    if (error) break;
    target = target.parent_path() / next;  // an absolute link replaces the folder
  }
  return target;
}

}  // namespace

OutputFile::OutputFile(const fs::path& file)
    : m_name(file), m_target(FollowLinks(file)), m_buffer(kBuffer) {
  std::error_code ignored;
  const fs::file_status status = fs::status(m_target, ignored);
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    throw FileError(m_name, "is not a regular file and will not be replaced",
                    "name a file in a folder that can be written");
  }
  if (m_target.filename().empty()) throw FileError(m_name, "is not the name of a file");

  const fs::path folder = m_target.parent_path();
  platform::NewFile::SweepLeftovers(folder.empty() ? "." : folder);
  std::random_device random;
  bool made = false;
  for (int i = 0; i < kNameTries && !made; ++i) {
    made = m_file.Create(folder / platform::NewFile::TemporaryName(random()));
    if (!made && m_file.Error() != std::errc::file_exists) break;
  }
  if (!made) {
    throw FileError(m_name, "cannot be created: " + m_file.Error().message(),
                    "the folder must exist and be writable");
  }
}

bool OutputFile::Flush() noexcept {
  return m_file.Write(m_buffer.data(), std::exchange(m_buffered, 0));
}

bool OutputFile::TryWrite(const void* bytes, std::size_t count) noexcept {
  if (count > m_buffer.size() - m_buffered && !Flush()) return false;
  if (count >= m_buffer.size()) return m_file.Write(bytes, count);
  std::memcpy(m_buffer.data() + m_buffered, bytes, count);
  m_buffered += count;
  return true;
}

void OutputFile::Write(const void* bytes, std::size_t count) {
  if (!TryWrite(bytes, count)) Fail();
}

void OutputFile::Commit() {
  if (!Flush() || !m_file.Publish(m_target)) Fail();
}

void OutputFile::Fail() const {
  throw FileError(m_name, "cannot be written: " + m_file.Error().message(),
                  m_file.Error() == std::errc::no_space_on_device ? "free space on its disk" : "");
}

}  // namespace korin
