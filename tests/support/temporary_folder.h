#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <string>

#include "support/scoped_variable.h"

namespace korin::test {

// A folder of the test's own, removed with all that it holds.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::random_device random;
    m_folder = std::filesystem::temp_directory_path() /
               ("korin-test-" + std::to_string(random()) + std::to_string(random()));
    std::filesystem::create_directory(m_folder);
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  const std::filesystem::path& Path() const { return m_folder; }

 private:
  std::filesystem::path m_folder;
};

// One that is the temporary folder of this process and its partners while it lives:
// sweeps of other programs do not come there.
class OwnTemporaryFolder {
 public:
#ifdef _WIN32
  static constexpr const char* kVariable = "TMP";
#else
  static constexpr const char* kVariable = "TMPDIR";
#endif
  OwnTemporaryFolder() {}  // so that constants need no initializer
  const std::filesystem::path& Path() const { return m_folder.Path(); }

 private:
  ScratchFolder m_folder;
  ScopedVariable m_variable{kVariable, m_folder.Path().string().c_str()};
};

// The names of what a folder holds.
inline std::set<std::string> Names(const std::filesystem::path& folder) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.insert(entry.path().filename().string());
  }
  return names;
}

// All bytes of a file, as text or in a vector.
template <typename Bytes = std::string>
Bytes Contents(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
template <typename Bytes>
void PutContents(const std::filesystem::path& file, const Bytes& bytes) {
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), std::ssize(bytes));
}

}  // namespace korin::test
