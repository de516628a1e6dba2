#include "session.h"

#include <fmt/format.h>

#include <CLI/Option.hpp>
#include <CLI/TypeTools.hpp>
#include <CLI/Validators.hpp>
#include <limits>
#include <map>

#include "command_config.h"
#include "file_option.h"
#include "korinimage/config.h"
#include "korinimage/threads.h"
#include "platform/text.h"
#include "progress_bar.h"

namespace korin::app {

namespace {

constexpr std::int64_t kKib = 1024;
constexpr std::int64_t kLongestPixel = 8;  // a line must fit in every type it may get

}  // namespace

void Session::AddOptions(CLI::App& app) {
  constexpr const char* kGroup = "Memory and threads";
  const CLI::Range anyPositive(1, std::numeric_limits<int>::max());
  app.add_option("--memory", m_memoryMib, "Memory for pixels, exactly; the rest goes to disk")
      ->type_name("MIB")
      ->check(anyPositive)
      ->group(kGroup);
  app.add_option("--block-size", m_blockKib, "Size of a block of pixels")
      ->type_name("KIB")
      ->check(CLI::Range(1, std::numeric_limits<int>::max() / 1024))
      ->group(kGroup);
  app.add_option("--disk", m_diskMib, "Most that the swap file may take")
      ->type_name("MIB")
      ->check(CLI::Range(std::int64_t{0}, std::int64_t{std::numeric_limits<int>::max()}))
      ->group(kGroup);
  AddFileOption(app, "--swap-dir", m_swapFolder, "Folder of the swap file")
      ->type_name("DIR")
      ->check([](const std::string& folder) {
        std::error_code error;
        return std::filesystem::is_directory(platform::PathOf(folder), error)
                   ? std::string()
                   : "Directory does not exist: " + folder;
      })
      ->group(kGroup);
  const std::map<std::string, CVmManager::AllocationPolicy> policies = {
      {"blocks", CVmManager::AllocationPolicy::Blocks},
      {"planes", CVmManager::AllocationPolicy::Planes},
      {"image", CVmManager::AllocationPolicy::Image}};
  app.add_option("--policy", m_policy,
                 "How pixels are cut into blocks: blocks of lines (default), whole planes, "
                 "the whole image")
      ->type_name("blocks|planes|image")
      ->transform(CLI::Transformer(policies).description(""))
      ->group(kGroup);
  app.add_option("--threads", m_threads, "Threads that may work at once (default: all)")
      ->type_name("N")
      ->check(CLI::Range(1, 1024))
      ->group(kGroup);
}

std::shared_ptr<CVmManager> Session::Manager(std::int64_t bytesPerLine) {
  if (m_manager != nullptr) return m_manager;
  if (m_threads > 0) SetThreadCount(m_threads);
  if (m_memoryMib && m_blockKib && *m_blockKib > *m_memoryMib * kKib) {
    throw UsageError(
        fmt::format("--block-size {} KiB does not fit --memory {} MiB", *m_blockKib, *m_memoryMib));
  }
  Config::SetDefaultConfig(std::make_shared<CommandConfig>(Config::DefaultConfig(), m_diskMib));
  auto settings = CVmManagerConfiguration::CurrentConfiguration();
  if (m_memoryMib) {
    // A ratio of 0 leaves the floor as the whole budget.
    settings->MemoryRatio = 0;
    settings->MinMemorySize = *m_memoryMib;
  }
  if (m_diskMib) settings->MaxDiskSize = *m_diskMib;
  if (!m_swapFolder.empty()) {
    settings->VMDrive = platform::PathToWide(std::filesystem::absolute(m_swapFolder));
  }
  if (m_blockKib) {
    settings->BlockSize = static_cast<std::int32_t>(*m_blockKib * kKib);
  } else if (bytesPerLine > settings->BlockSize &&
             bytesPerLine <= std::numeric_limits<std::int32_t>::max() - 65536) {
    settings->BlockSize = static_cast<std::int32_t>((bytesPerLine + 65535) / 65536 * 65536);
  }
  m_manager = CVmManager::Create(std::move(settings));
  m_manager->SetAllocationPolicy(m_policy);
  const VMSTATUS status = m_manager->GetStatus();
  if (!m_swapFolder.empty() && status.vmDrive.empty()) {
    fmt::print(stderr, "korinimage: {} cannot hold the swap file, using {}\n",
               m_swapFolder.string(), platform::ToUtf8(status.swapFolder));
  }
  return m_manager;
}

std::unique_ptr<CImage> Session::Load(const std::filesystem::path& file, int hdu) {
  FitsOptions options;
  options.hdu = hdu;
  const FitsDescription found = DescribeFits(file, options);
  return LoadFits(Manager(found.width * kLongestPixel), file, options, MakeProgress("loading"));
}

void Session::Save(CImage& image, const std::filesystem::path& file) {
  SaveFits(image, file, MakeProgress("saving"));
}

std::shared_ptr<Progress> Session::MakeProgress(const std::string& label) const {
  return std::make_shared<ProgressBar>(label);
}

void AddHduOption(CLI::App& command, int& hdu) {
  command
      .add_option("--hdu", hdu, "Unit of the file: 0 the primary one (default: the first image)")
      ->type_name("N")
      ->check(CLI::Range(0, std::numeric_limits<int>::max() - 1));
}

}  // namespace korin::app
