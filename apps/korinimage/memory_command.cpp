#include <fmt/format.h>

#include <CLI/Option.hpp>
#include <CLI/TypeTools.hpp>
#include <CLI/Validators.hpp>
#include <array>
#include <charconv>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

#include "commands.h"
#include "json.h"
#include "korinimage/config.h"
#include "korinimage/vm_manager.h"
#include "platform/text.h"

namespace korin::app {

namespace {

constexpr std::string_view kSection = "VMManager";

struct Setting {
  std::string_view key;
  std::int64_t least;
  std::int64_t most;
  std::int64_t fallback;
  std::string_view meaning;
};

constexpr std::string_view kFolderKey = "VMDrive";
constexpr std::int64_t kIntMax = std::numeric_limits<std::int32_t>::max();
constexpr std::array<Setting, 7> kSettings = {{
    {"BlockSize", 1, kIntMax / 1024, 256, "KiB of one block of pixels"},
    {"MemoryRatio", 0, 100, 70, "percent of the memory beyond the reserve that pixels may take"},
    {"MinMemorySize", 0, kIntMax, 32, "MiB that pixels may take in any case"},
    {"ReservedMemory", -1, kIntMax, -1, "MiB left to the system; -1: computed"},
    {"MaxDiskSize", 0, kIntMax, 8000, "MiB that the swap file may take"},
    {"Wow64MemoryRatio", 0, 100, 90, "percent of the address space of a 32-bit process"},
    {"AvailPhysMemory", 0, 1, 1, "1: stay within the memory available at the start"},
}};

const Setting* FindSetting(std::string_view key) {
  for (const Setting& setting : kSettings) {
    if (setting.key == key) return &setting;
  }
  return nullptr;
}

[[noreturn]] void ThrowUnknown(const std::string& key) {
  std::string names(kFolderKey);
  for (const Setting& setting : kSettings) names.append(", ").append(setting.key);
  throw UsageError("there is no setting " + key + "; there are " + names);
}

std::string Current(const Setting& setting) {
  const auto config = Config::DefaultConfig();
  if (setting.key == "AvailPhysMemory") {
    return config->ReadBool(kSection, setting.key, true) ? "1" : "0";
  }
  return std::to_string(config->ReadInt64(kSection, setting.key, setting.fallback));
}

std::string CurrentFolder() {
  return platform::ToUtf8(Config::DefaultConfig()->ReadString(kSection, kFolderKey, L""));
}

double Mib(std::int64_t bytes) { return static_cast<double>(bytes) / 1048576.0; }

void PrintStatus(const CVmManager& manager, bool asJson) {
  const CVmManager::MemoryInfo memory = manager.GetMemoryInfo();
  const VMSTATUS status = manager.GetStatus();
  const std::int64_t block = manager.GetBlockSize();
  const std::string folder = platform::ToUtf8(status.swapFolder);
  if (asJson) {
    JsonWriter json;
    json.BeginObject();
    json.Field("budget", memory.budget);
    json.Field("reserve", memory.reserve);
    json.Field("block_size", block);
    json.Field("memory_blocks", manager.GetMemoryCapacityBlocks());
    json.Field("memory_blocks_used", manager.GetMemoryUsedBlocks());
    json.Field("total_blocks", manager.GetTotalCapacityBlocks());
    json.Field("disk_limit_blocks", manager.GetDiskLimitBlocks());
    json.Field("disk_used", manager.GetDiskUsedBytes());
    json.Field("free_disk_mib", status.freeDisk);
    json.Field("swap_folder", folder);
    json.EndObject();
    fmt::print("{}\n", json.Text());
    return;
  }
  fmt::print("budget       {:.1f} MiB for pixels in memory\n", Mib(memory.budget));
  fmt::print("reserve      {:.1f} MiB left to the system\n", Mib(memory.reserve));
  fmt::print("capacity     {} blocks of {} KiB in memory, {} with the disk\n",
             manager.GetMemoryCapacityBlocks(), block / 1024, manager.GetTotalCapacityBlocks());
  fmt::print("in use       {} blocks in memory, {:.1f} MiB on disk\n",
             manager.GetMemoryUsedBlocks(), Mib(manager.GetDiskUsedBytes()));
  fmt::print("disk limit   {:.1f} MiB ({} MiB usable)\n", Mib(manager.GetDiskLimitBlocks() * block),
             status.freeDisk);
  fmt::print("swap folder  {}\n", folder);
}

void PrintSettings(bool asJson) {
  JsonWriter json;
  json.BeginObject();
  for (const Setting& setting : kSettings) {
    const std::string value = Current(setting);
    json.Field(setting.key, std::int64_t{std::stoll(value)});
    if (!asJson) fmt::print("{:<17} {:>8}  {}\n", setting.key, value, setting.meaning);
  }
  const std::string folder = CurrentFolder();
  json.Field(kFolderKey, folder);
  json.EndObject();
  if (asJson) {
    fmt::print("{}\n", json.Text());
  } else {
    fmt::print("{:<17} {:>8}  folder of the swap file; empty: the temporary folder\n", kFolderKey,
               folder);
    fmt::print("kept in {}\n", Config::DefaultConfig()->File().string());
  }
}

void WriteSetting(const std::string& key, const std::string& value) {
  const auto config = Config::DefaultConfig();
  if (key == kFolderKey) {
    if (value.empty()) {
      config->DeleteValue(kSection, kFolderKey);
    } else {
      const std::filesystem::path folder = std::filesystem::absolute(platform::PathOf(value));
      if (!std::filesystem::is_directory(folder)) {
        throw UsageError(value + " is not a folder");
      }
      config->WriteString(kSection, kFolderKey, platform::PathToWide(folder));
    }
  } else {
    const Setting* setting = FindSetting(key);
    if (setting == nullptr) ThrowUnknown(key);
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (error != std::errc() || end != value.data() + value.size() || number < setting->least ||
        number > setting->most) {
      throw UsageError(fmt::format("{} is a whole number from {} to {}, not {}", key,
                                   setting->least, setting->most, value));
    }
    config->WriteInt64(kSection, setting->key, number);
  }
  // What the last manager noted about its budget no longer follows from the settings.
  config->DeleteValue(kSection, "AcquiredMemory");
}

void CheckKept(const std::string& key, const std::string& value) {
  // A store that cannot write its file keeps changes for this process only: ask the
  // file again.
  Config::SetDefaultConfig(nullptr);
  const Setting* setting = FindSetting(key);
  const bool kept = setting != nullptr ? Current(*setting) == std::to_string(std::stoll(value))
                                       : CurrentFolder().empty() == value.empty();
  if (!kept) {
    throw std::runtime_error("the settings cannot be written to " +
                             Config::DefaultConfig()->File().string());
  }
}

}  // namespace

void AddMemoryCommand(CLI::App& app, Session& session) {
  auto json = std::make_shared<bool>(false);
  auto key = std::make_shared<std::string>();
  auto value = std::make_shared<std::string>();
  CLI::App* command =
      app.add_subcommand("memory", "The memory manager: what it may use, and its settings");
  command->require_subcommand(0, 1);
  command->add_flag("--json", *json, "Print JSON");
  CLI::App* status = command->add_subcommand("status", "Budget, capacity, disk limit (default)");
  status->add_flag("--json", *json, "Print JSON");
  CLI::App* settings = command->add_subcommand("settings", "All settings");
  settings->add_flag("--json", *json, "Print JSON");
  CLI::App* get = command->add_subcommand("get", "One setting");
  get->add_option("key", *key, "Name of the setting")->type_name("KEY")->required();
  CLI::App* set = command->add_subcommand("set", "Change a setting for all later runs");
  set->add_option("key", *key, "Name of the setting")->type_name("KEY")->required();
  set->add_option("value", *value, "New value")->type_name("VALUE")->required();

  command->callback([=, &session] {
    if (settings->parsed()) {
      PrintSettings(*json);
    } else if (get->parsed()) {
      const Setting* setting = FindSetting(*key);
      if (setting == nullptr && *key != kFolderKey) ThrowUnknown(*key);
      fmt::print("{}\n", setting != nullptr ? Current(*setting) : CurrentFolder());
    } else if (set->parsed()) {
      WriteSetting(*key, *value);
      CheckKept(*key, *value);
    } else {
      PrintStatus(*session.Manager(), *json);
    }
  });
}

}  // namespace korin::app
