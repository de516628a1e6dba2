#include "korinimage/vm_manager_configuration.h"

#include <limits>

#include "korinimage/config.h"
#include "vm/settings_keys.h"

namespace keys = korin::vm::settings;

std::unique_ptr<CVmManagerConfiguration> CVmManagerConfiguration::DefaultConfiguration() {
  return std::make_unique<CVmManagerConfiguration>();
}

std::unique_ptr<CVmManagerConfiguration> CVmManagerConfiguration::CurrentConfiguration() {
  auto current = DefaultConfiguration();
  const auto config = korin::Config::DefaultConfig();
  const auto readInt = [&](const char* key, std::int32_t fallback) -> std::int32_t {
    return config->ReadInt(keys::kSection, key, fallback);
  };
  const std::int64_t blockSize =
      std::int64_t{readInt(keys::kBlockSize, current->BlockSize / 1024)} * 1024;
  if (blockSize >= 0 && blockSize <= std::numeric_limits<std::int32_t>::max()) {
    current->BlockSize = static_cast<std::int32_t>(blockSize);
  }
  current->MemoryRatio = readInt(keys::kMemoryRatio, current->MemoryRatio);
  current->MinMemorySize = readInt(keys::kMinMemorySize, current->MinMemorySize);
  current->ReservedMemory = readInt(keys::kReservedMemory, current->ReservedMemory);
  current->VMDrive = config->ReadString(keys::kSection, keys::kVmDrive, current->VMDrive);
  current->MaxDiskSize = readInt(keys::kMaxDiskSize, keys::kDefaultMaxDiskSize);
  current->Wow64MemoryRatio = readInt(keys::kWow64MemoryRatio, current->Wow64MemoryRatio);
  current->AvailPhysMemory =
      config->ReadBool(keys::kSection, keys::kAvailPhysMemory, current->AvailPhysMemory);
  return current;
}
