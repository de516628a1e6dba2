#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "fuzz_input.h"

namespace korin::fuzz {

// A file with given bytes and no place in any folder: nothing is left when a run is
// killed.
class MemoryFile {
 public:
  explicit MemoryFile(std::string_view bytes) {
    Require(m_file >= 0, "a file in memory can be made");
    Require(write(m_file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
            "its bytes can be written");
  }
  ~MemoryFile() { close(m_file); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  std::filesystem::path Path() const { return "/proc/self/fd/" + std::to_string(m_file); }

 private:
  int m_file = memfd_create("fuzz", MFD_CLOEXEC);
};

// A folder of the process's own, which is its temporary folder; it goes at exit.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "korin-fuzz-XXXXXX").string();
    Require(mkdtemp(name.data()) != nullptr, "a folder can be made");
    setenv("TMPDIR", name.c_str(), 1);
    m_path = name;
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::filesystem::path& Path() const { return m_path; }

 private:
  std::filesystem::path m_path;
};

}  // namespace korin::fuzz
