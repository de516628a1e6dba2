#pragma once

#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>

namespace korin::test {

// A temporary folder of the test's own, for this process and its partners: sweeps
// of other programs do not come there.
class OwnTemporaryFolder {
 public:
#ifdef _WIN32
  static constexpr const char* kVariable = "TMP";
#else
  static constexpr const char* kVariable = "TMPDIR";
#endif
  OwnTemporaryFolder() {
    const char* const former = std::getenv(kVariable);
    m_former = former == nullptr ? "" : former;
    std::random_device random;
    m_folder = std::filesystem::temp_directory_path() / ("exchange" + std::to_string(random()));
    std::filesystem::create_directory(m_folder);
    Set(m_folder.string());
  }
  ~OwnTemporaryFolder() {
    Set(m_former);
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
  }
  OwnTemporaryFolder(const OwnTemporaryFolder&) = delete;
  OwnTemporaryFolder& operator=(const OwnTemporaryFolder&) = delete;
  const std::filesystem::path& Path() const { return m_folder; }

 private:
  static void Set(const std::string& value) {
#ifdef _WIN32
    _putenv_s(kVariable, value.c_str());  // an empty value removes the variable
#else
    if (value.empty()) {
      unsetenv(kVariable);
    } else {
      setenv(kVariable, value.c_str(), 1);
    }
#endif
  }

  std::string m_former;
  std::filesystem::path m_folder;
};

}  // namespace korin::test
