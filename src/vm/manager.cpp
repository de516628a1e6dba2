#include "korinimage/vm_manager.h"

#include <algorithm>
#include <utility>

#include "korinimage/config.h"
#include "platform/exchange_names.h"
#include "platform/shared_mapping.h"
#include "platform/swap_sweep.h"
#include "platform/volume.h"
#include "vm/manager_impl.h"
#include "vm/settings_keys.h"
#include "vm/swap_space.h"

namespace keys = korin::vm::settings;

CVmManager::~CVmManager() = default;

std::shared_ptr<CVmManager> CVmManager::Create(
    std::unique_ptr<CVmManagerConfiguration>&& configuration) {
  auto taken = std::move(configuration);
  if (!taken) taken = CVmManagerConfiguration::CurrentConfiguration();
  return std::make_shared<CVmManagerImpl>(std::move(taken));
}

void CVmManager::DeleteAllSwapFiles(const std::unique_ptr<CVmManagerConfiguration>& configuration) {
  try {
    // Memory of an image exchange whose processes were killed: asking removes it.
    for (const auto name : korin::platform::kExchangeMappingNames) {
      static_cast<void>(korin::platform::IsSharedMappingHeld(name));
    }
    std::error_code error;
    const auto temporary = std::filesystem::temp_directory_path(error);
    if (!error) korin::platform::SweepSwapFiles(temporary);
    if (!configuration) return;
    // A refused drive may be a share that other machines swap to.
    auto drive = korin::vm::ValidatedDrive(configuration->VMDrive);
    if (drive.empty()) return;
    if (korin::platform::IsBareDrive(drive)) drive += "\\";
    korin::platform::SweepSwapFiles(drive);
  } catch (...) {  // the next start sweeps
  }
}

void CVmManager::WriteVmStatus(const VMSTATUS* status) {
  if (status == nullptr) return;
  const auto config = korin::Config::DefaultConfig();
  if (status->vmDrive.empty()) {
    config->DeleteValue(keys::kSection, keys::kVmDrive);
  } else {
    config->WriteString(keys::kSection, keys::kVmDrive, status->vmDrive);
  }
  config->WriteInt64(keys::kSection, keys::kMemoryRatio, status->memoryRatio);
  config->WriteInt64(keys::kSection, keys::kMaxDiskSize, status->maximumDisk);
  config->DeleteValue(keys::kSection, keys::kAcquiredMemory);
}

BYTE* CVmManager::MapBlock(const std::shared_ptr<CVmHandle>& handle, std::int64_t index,
                           bool literalFlag, korin::BlockIntent) {
  return GetBlockAddress(handle, index, literalFlag);
}

void CVmManager::UnmapBlock(const std::shared_ptr<CVmHandle>&, std::int64_t) noexcept {}

BYTE* CVmManager::MapResidentBlock(const std::shared_ptr<CVmHandle>&, std::int64_t) {
  return nullptr;
}

std::optional<korin::SwapPlace> CVmManager::FindInSwap(const std::shared_ptr<CVmHandle>&,
                                                       std::int64_t) const {
  return std::nullopt;
}

bool CVmManager::ReadFromSwap(const korin::SwapPlace&, std::int64_t, void*, std::int64_t) const {
  return false;
}

bool CVmManager::IsCurrent(const korin::SwapPlace&) const { return false; }

std::int64_t CVmManager::GetMemoryUsedBlocks() const { return 0; }

std::int64_t CVmManager::GetComfortableBlocks() const { return 1; }

void CVmManager::FreeHandle(std::shared_ptr<CVmHandle>& handle) {
  if (handle) handle->Delete();
  handle.reset();
}

std::int64_t CVmManager::GetDiskFreeBlocks(const std::filesystem::path& folder,
                                           std::int64_t blockSize) {
  return korin::platform::AvailableBytes(folder) / std::max<std::int64_t>(blockSize, 1);
}
