#include "output_file.h"

#include <cerrno>
#include <random>
#include <system_error>

#include "korinimage/io/file_error.h"

namespace korin {

namespace {

namespace fs = std::filesystem;

constexpr int kNameTries = 100;

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

std::string Reason(int error) {
  return error == 0 ? "unknown error" : std::generic_category().message(error);
}

}  // namespace

OutputFile::OutputFile(const fs::path& file) : m_name(file), m_target(FollowLinks(file)) {
  std::error_code ignored;
  const fs::file_status status = fs::status(m_target, ignored);
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    throw FileError(m_name, "is not a regular file and will not be replaced",
                    "name a file in a folder that can be written");
  }
  if (m_target.filename().empty()) throw FileError(m_name, "is not the name of a file");

  std::random_device random;
  for (int i = 0; i < kNameTries && m_file == nullptr; ++i) {
    // A short name of its own: the target's may already be as long as names get.
    m_temporary = m_target.parent_path() / (".korin-" + std::to_string(random()) + ".tmp");
    errno = 0;
    m_file = std::fopen(m_temporary.string().c_str(), "wbx");  // x: never an existing file
    m_error = errno;
    if (m_file == nullptr && m_error != EEXIST) break;
  }
  if (m_file == nullptr) {
    throw FileError(m_name, "cannot be created: " + Reason(m_error),
                    "the folder must exist and be writable");
  }
}

OutputFile::~OutputFile() {
  if (m_file != nullptr) std::fclose(m_file);
  if (!m_temporary.empty()) {
    std::error_code ignored;
    fs::remove(m_temporary, ignored);
  }
}

bool OutputFile::TryWrite(const void* bytes, std::size_t count) noexcept {
  errno = 0;
  if (std::fwrite(bytes, 1, count, m_file) == count) return true;
  m_error = errno;
  return false;
}

void OutputFile::Write(const void* bytes, std::size_t count) {
  if (!TryWrite(bytes, count)) Fail();
}

void OutputFile::Commit() {
  std::FILE* file = m_file;
  m_file = nullptr;
  errno = 0;
  if (std::fclose(file) != 0) {  // the last bytes may meet the full disk only now
    m_error = errno;
    Fail();
  }
  std::error_code error;
  fs::rename(m_temporary, m_target, error);
  if (error) throw FileError(m_name, "cannot be replaced: " + error.message());
  m_temporary.clear();
}

void OutputFile::Fail() const {
  throw FileError(m_name, "cannot be written: " + Reason(m_error),
                  m_error == ENOSPC ? "free space on its disk" : "");
}

}  // namespace korin
