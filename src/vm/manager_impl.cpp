#include "vm/manager_impl.h"

#include <algorithm>
#include <atomic>

#include "korinimage/config.h"
#include "platform/checked_math.h"
#include "platform/memory_figures.h"
#include "platform/process.h"
#include "platform/text.h"
#include "vm/settings_keys.h"
#include "vm/swap_space.h"

using korin::CheckedMul;
using korin::CVmMemoryAllocationError;
using korin::vm::PagingLock;
namespace keys = korin::vm::settings;

namespace {

constexpr std::int64_t kMiB = 1 << 20;

// Bytes that one operation holds at once: enough that what it costs to gather blocks and
// to wake the threads does not count.
constexpr std::int64_t kMostHeld = 64 * kMiB;

// Of the manager created last, whichever it was: a settings dialog shows one.
std::atomic<std::int64_t> g_freeDiskMiB{0};

}  // namespace

CVmManagerImpl::CVmManagerImpl(std::unique_ptr<CVmManagerConfiguration> configuration,
                               korin::vm::ManagerSeams seams)
    : m_pConfiguration(std::move(configuration)), m_seams(std::move(seams)) {
  if (m_pConfiguration->BlockSize <= 0) {
    m_pConfiguration->BlockSize = CVmManagerConfiguration().BlockSize;
  }
  m_nBlockSize = m_pConfiguration->BlockSize;
  m_budget = ComputeBudget();
  m_nCapacity = m_budget.budget / m_nBlockSize;
  const auto config = korin::Config::DefaultConfig();
  config->WriteInt64(keys::kSection, keys::kAcquiredMemory, m_budget.budget / kMiB);

  DeleteAllSwapFiles(m_pConfiguration);
  m_vmDrive = korin::vm::ValidatedDrive(m_pConfiguration->VMDrive);
  m_swapFolder = korin::vm::ChooseSwapFolder(m_vmDrive);
  auto space = korin::vm::OpenSwapSpace(
      m_swapFolder, GetDiskFreeBlocks(m_swapFolder, m_nBlockSize), m_nBlockSize,
      config->ReadInt(keys::kSection, keys::kMaxDiskSize, keys::kDefaultMaxDiskSize));
  m_pSwap = std::move(space.backend);
  if (m_seams.swap) m_pSwap = m_seams.swap(m_swapFolder);
  m_slots.SetLimit(m_seams.diskLimitBlocks.value_or(space.limitBlocks));
  g_freeDiskMiB = space.freeMiB;
}

// Handles that outlive the manager are not touched: they see it gone by their weak
// reference.
CVmManagerImpl::~CVmManagerImpl() = default;

korin::vm::MemoryBudget CVmManagerImpl::ComputeBudget() const {
  auto budget = korin::vm::ComputeMemoryBudget(*m_pConfiguration, korin::platform::QueryMemory(),
                                               korin::platform::IsWow64());
  budget.budget = m_seams.budgetBytes.value_or(budget.budget);
  return budget;
}

// The one place that says how many manager blocks a block takes, in memory and in
// the swap file.
std::int64_t CVmManagerImpl::BlocksOf(std::int64_t bytes) const {
  return korin::CeilDiv(bytes, m_nBlockSize);
}

std::int64_t CVmManagerImpl::GetBlockSize() const { return m_nBlockSize; }

CVmManager::AllocationPolicy CVmManagerImpl::GetAllocationPolicy() const {
  const PagingLock lock(m_mutex);
  return m_policy;
}

void CVmManagerImpl::SetAllocationPolicy(AllocationPolicy policy) {
  const PagingLock lock(m_mutex);
  m_policy = policy;
}

std::int64_t CVmManagerImpl::GetLinesPerBlock(std::int64_t bytesPerLine, std::int64_t height,
                                              std::int64_t planes) const {
  const AllocationPolicy policy = GetAllocationPolicy();
  const auto lines = CheckedMul(height, planes);
  if (!lines || !CheckedMul(bytesPerLine, *lines)) {
    throw CVmMemoryAllocationError("an image of " + std::to_string(bytesPerLine) +
                                   " bytes per line, " + std::to_string(height) + " lines and " +
                                   std::to_string(planes) + " planes has no valid size");
  }
  const bool empty = bytesPerLine == 0 || *lines == 0;
  switch (policy) {
    case AllocationPolicy::Blocks:
      return empty ? std::max<std::int64_t>(height, 1) : m_nBlockSize / bytesPerLine;
    case AllocationPolicy::Planes:
      return empty ? std::max<std::int64_t>(height, 1) : height;
    case AllocationPolicy::Image:
      return empty ? std::max<std::int64_t>(height, 1) : *lines;
  }
  throw CVmMemoryAllocationError("unknown allocation policy " +
                                 std::to_string(static_cast<std::int32_t>(policy)));
}

std::int64_t CVmManagerImpl::GetBlockCountFor(std::int64_t bytesPerLine, std::int64_t height,
                                              std::int64_t planes) const {
  const std::int64_t linesPerBlock = GetLinesPerBlock(bytesPerLine, height, planes);
  return bytesPerLine == 0 ? 0 : korin::CeilDiv(height * planes, linesPerBlock);
}

CVmManager::MemoryInfo CVmManagerImpl::GetMemoryInfo() const {
  const auto budget = ComputeBudget();
  return {budget.reserve, budget.budget};
}

VMSTATUS CVmManagerImpl::GetStatus() const {
  VMSTATUS status;
  status.blockSize = m_nBlockSize / 1024;
  status.memoryRatio = m_pConfiguration->MemoryRatio;
  status.reservedMemory = m_pConfiguration->ReservedMemory;
  status.minimumMemory = m_pConfiguration->MinMemorySize;
  status.maximumDisk = m_pConfiguration->MaxDiskSize;
  status.freeDisk = g_freeDiskMiB;
  status.swapFolder = korin::platform::PathToWide(m_swapFolder);
  status.vmDrive = korin::platform::PathToWide(m_vmDrive);
  return status;
}

VMSTATUS CVmManagerImpl::GetDefaultStatus() const {
  constexpr std::int64_t kUnit = 256;  // bytes
  const CVmManagerConfiguration defaults;
  VMSTATUS status;
  status.blockSize = defaults.BlockSize / 1024;
  status.memoryRatio = defaults.MemoryRatio;
  status.reservedMemory = defaults.ReservedMemory;
  status.minimumMemory = defaults.MinMemorySize;
  const std::int64_t free = GetDiskFreeBlocks(std::filesystem::temp_directory_path(), kUnit);
  std::int64_t suggested = korin::vm::UsableBlocks(free) * kUnit / kMiB;
  // This manager's own swap file lies on the same volume and is not free only
  // because of it.
  if (m_vmDrive.empty()) suggested += GetDiskUsedBytes() / kMiB;
  status.maximumDisk = std::min(suggested, defaults.MaxDiskSize);
  return status;
}

std::int64_t CVmManagerImpl::GetDiskUsedBytes() const {
  const PagingLock lock(m_mutex);
  return m_slots.Used() * m_nBlockSize;
}

CVmManager::PhysicalMemory CVmManagerImpl::GetPhysicalMemory() const {
  const auto figures = korin::platform::QueryMemory();
  return {static_cast<std::int64_t>(figures.totalPhysical),
          static_cast<std::int64_t>(figures.availablePhysical), m_budget.reserve, m_budget.budget};
}

std::int64_t CVmManagerImpl::GetAllocatedBlocks() const {
  const PagingLock lock(m_mutex);
  return m_nAllocated;
}

std::int64_t CVmManagerImpl::GetDiskLimitBlocks() const { return m_slots.Limit(); }
std::int64_t CVmManagerImpl::GetMemoryCapacityBlocks() const { return m_nCapacity; }
std::int64_t CVmManagerImpl::GetTotalCapacityBlocks() const {
  return m_slots.Limit() + m_nCapacity;
}

std::recursive_mutex& CVmManagerImpl::GetLock() { return m_mutex; }

std::int64_t CVmManagerImpl::GetMemoryUsedBlocks() const {
  const PagingLock lock(m_mutex);
  return m_nMemoryUsed;
}

std::int64_t CVmManagerImpl::GetComfortableBlocks() const {
  const std::int64_t most = std::min(m_nCapacity / 4, kMostHeld / m_nBlockSize);
  return std::max<std::int64_t>(most, 1);
}

std::shared_ptr<CVmManagerImpl> korin::CreateManagerForTest(std::int32_t blockSize,
                                                            std::int64_t capacityBlocks,
                                                            std::int64_t diskLimitBlocks,
                                                            vm::ManagerSeams seams) {
  auto configuration = CVmManagerConfiguration::DefaultConfiguration();
  configuration->BlockSize = blockSize;
  seams.budgetBytes = capacityBlocks * blockSize;
  seams.diskLimitBlocks = diskLimitBlocks;
  return std::make_shared<CVmManagerImpl>(std::move(configuration), std::move(seams));
}
