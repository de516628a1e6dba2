#pragma once

#include <CLI/App.hpp>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "korinimage/image.h"
#include "korinimage/io/fits_file.h"
#include "korinimage/vm_manager.h"

namespace korin::app {

// A command line that asks for something contradictory; exit code 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One run of the command: the options that all subcommands share, and the manager
// and images made under them.
class Session {
 public:
  void AddOptions(CLI::App& app);

  // The manager of this run, made at the first call. Blocks are made large enough
  // for a line of `bytesPerLine` bytes unless the user fixed their size.
  std::shared_ptr<CVmManager> Manager(std::int64_t bytesPerLine = 0);
  // Opens a frame; `hdu` as FitsOptions.
  std::unique_ptr<CImage> Load(const std::filesystem::path& file, int hdu);
  void Save(CImage& image, const std::filesystem::path& file);
  std::shared_ptr<Progress> MakeProgress(const std::string& label) const;

 private:
  std::optional<int> m_memoryMib;
  std::optional<int> m_blockKib;
  std::optional<std::int64_t> m_diskMib;
  std::filesystem::path m_swapFolder;
  CVmManager::AllocationPolicy m_policy = CVmManager::AllocationPolicy::Blocks;
  int m_threads = 0;
  std::shared_ptr<CVmManager> m_manager;
};

// The option --hdu, which all commands that read a frame have.
void AddHduOption(CLI::App& command, int& hdu);

}  // namespace korin::app
