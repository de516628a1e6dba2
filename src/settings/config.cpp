#include "korinimage/config.h"

#include <mutex>
#include <system_error>
#include <utility>

#include "platform/lasting.h"
#include "platform/user_folders.h"
#include "settings/ini_config.h"

namespace korin {

namespace {

struct Default {
  std::mutex mutex;
  std::shared_ptr<Config> config;
  bool opened = false;  // here; else its code may lie in a library that is gone by then

  void AtUnload() noexcept {
    const std::unique_lock lock(mutex, std::try_to_lock);
    if (lock && opened) config.reset();
  }
};

// Managers may write their figures while the process ends.
Default& TheDefault() { return platform::Lasting<Default>(); }

std::filesystem::path DefaultFile() {
  if (const auto named = platform::EnvironmentPath("KORINIMAGE_CONFIG")) return *named;
  const std::filesystem::path folder = platform::UserConfigFolder();
  return folder.empty() ? folder : folder / "korinimage" / "korinimage.ini";
}

}  // namespace

Config::~Config() = default;

std::filesystem::path Config::File() const { return {}; }

std::shared_ptr<Config> Config::DefaultConfig() {
  Default& shared = TheDefault();
  const std::lock_guard lock(shared.mutex);
  if (!shared.config) {
    shared.config = OpenFile(DefaultFile());
    shared.opened = true;
  }
  return shared.config;
}

void Config::SetDefaultConfig(std::shared_ptr<Config> config) {
  Default& shared = TheDefault();
  const std::lock_guard lock(shared.mutex);
  std::swap(shared.config, config);  // the old one dies outside the lock
  shared.opened = false;
}

// A relative name means the folder that is current now, not at a later write.
std::shared_ptr<Config> Config::OpenFile(const std::filesystem::path& file) {
  std::error_code error;
  auto whole = file.empty() ? file : std::filesystem::absolute(file, error);
  return std::make_shared<settings::IniConfig>(error ? file : std::move(whole));
}

}  // namespace korin

int CRegistry::Read(std::string_view section, std::string_view key, int fallback) noexcept try {
  return korin::Config::DefaultConfig()->ReadInt(section, key, fallback);
} catch (...) {
  return fallback;
}
