#include <limits>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/process.h"
#include "support/system.h"
#include "support/temporary_folder.h"
#include "vm/binary_units.h"
#include "vm/memory_budget.h"
#include "vm/swap_space.h"
#include "vm/vm_test_support.h"

namespace korin::test {
namespace {

struct Case {
  const char* name;
  std::int32_t ratio, minimum, reserved, wow64Ratio;
  bool limitByAvailable, isWow64;
  platform::MemoryFigures figures;
  std::uint64_t reserve, budget;
};

TEST(MemoryBudget, FollowsTheSettingsAndTheMachine) {
  const platform::MemoryFigures machine{16 * kGiB, 12 * kGiB, 2 * kGiB, 300 * kMiB, 4 * kGiB};
  const auto with = [&](auto change) {
    platform::MemoryFigures figures = machine;
    change(figures);
    return figures;
  };
  const auto small = with([](auto& f) { f.availablePhysical = kGiB; });
  // The kernel's own memory beyond what is available or uncached.
  const auto kernel = with([](auto& f) {
    f.kernelTotal = 15 * kGiB;
    f.availablePhysical = 3 * kGiB;
  });
  const auto odd = with([](auto& f) { f.kernelTotal = 300 * kMiB + kMiB - 1; });
  const std::uint64_t automatic = (16 * kGiB - 300 * kMiB) * 70 / 100;
  const Case cases[] = {
      {"defaults", 70, 32, -1, 90, true, false, machine, 300 * kMiB, automatic},
      {"reserve 0 is automatic", 70, 32, 0, 90, true, false, machine, 300 * kMiB, automatic},
      {"whole MiB only", 70, 32, -1, 90, true, false, odd, 300 * kMiB, automatic},
      {"uncached bounds the reserve", 70, 32, -1, 90, false, false, kernel, 12 * kGiB,
       4 * kGiB * 70 / 100},
      {"given reserve", 50, 32, 1024, 90, true, false, machine, kGiB, 15 * kGiB / 2},
      {"available binds", 70, 32, -1, 90, true, false, small, 300 * kMiB, kGiB * 70 / 100},
      {"available ignored", 70, 32, -1, 90, false, false, small, 300 * kMiB, automatic},
      {"never above the machine", 300, 32, 1, 90, true, false, machine, kMiB, 16 * kGiB},
      {"reserve above the machine", 70, 32, 20000, 90, true, false, machine, 20000 * kMiB,
       32 * kMiB},
      {"ratio 0: exactly the minimum", 0, 48, -1, 90, true, false, machine, 300 * kMiB, 48 * kMiB},
      {"ratio below 0", -5, 32, -1, 90, true, false, machine, 300 * kMiB, 32 * kMiB},
      {"minimum below 0", 0, -1, -1, 90, true, false, machine, 300 * kMiB, 0},
      {"address space binds: no reserve", 70, 32, -1, 90, true, true, machine, 0,
       2 * kGiB * 90 / 100},
      {"address space does not bind", 10, 32, -1, 90, true, true, machine, 300 * kMiB,
       (16 * kGiB - 300 * kMiB) / 10},
      {"minimum wins over the address space", 70, 3000, -1, 90, true, true, machine, 0,
       3000 * kMiB},
  };
  for (const Case& c : cases) {
    CVmManagerConfiguration configuration;
    configuration.MemoryRatio = c.ratio;
    configuration.MinMemorySize = c.minimum;
    configuration.ReservedMemory = c.reserved;
    configuration.Wow64MemoryRatio = c.wow64Ratio;
    configuration.AvailPhysMemory = c.limitByAvailable;
    const auto budget = vm::ComputeMemoryBudget(configuration, c.figures, c.isWow64);
    EXPECT_EQ(static_cast<std::uint64_t>(budget.reserve), c.reserve) << c.name;
    EXPECT_EQ(static_cast<std::uint64_t>(budget.budget), c.budget) << c.name;
  }
}

TEST(DiskBudget, TakesFourFifthsWithoutOverflow) {
  EXPECT_EQ(vm::UsableBlocks(0), 0);
  EXPECT_EQ(vm::UsableBlocks(1), 0);
  EXPECT_EQ(vm::UsableBlocks(-3), 0);
  EXPECT_EQ(vm::UsableBlocks(9), 7);
  EXPECT_EQ(vm::UsableBlocks(1234567), 1234567LL * 8 / 10);
  EXPECT_EQ(vm::UsableBlocks(std::int64_t{1} << 28), (std::int64_t{1} << 28) * 8 / 10);
  EXPECT_EQ(vm::UsableBlocks(std::int64_t{1} << 60), std::numeric_limits<std::int32_t>::max());
}

class ConfigurationTest : public VmTest {};

// A store of the application's own that notes which values are read, written and
// deleted.
class NotingConfig : public Config {
 public:
  using View = std::string_view;
  int ReadInt(View section, View key, int fallback) const override {
    return Note("read ", key).ReadInt(section, key, fallback);
  }
  std::int64_t ReadInt64(View section, View key, std::int64_t fallback) const override {
    return Note("read ", key).ReadInt64(section, key, fallback);
  }
  double ReadDouble(View section, View key, double fallback) const override {
    return Note("read ", key).ReadDouble(section, key, fallback);
  }
  bool ReadBool(View section, View key, bool fallback) const override {
    return Note("read ", key).ReadBool(section, key, fallback);
  }
  std::wstring ReadString(View section, View key, std::wstring_view fallback) const override {
    return Note("read ", key).ReadString(section, key, fallback);
  }
  void WriteInt(View section, View key, int value) override {
    Note("write ", key).WriteInt(section, key, value);
  }
  void WriteInt64(View section, View key, std::int64_t value) override {
    Note("write ", key).WriteInt64(section, key, value);
  }
  void WriteString(View section, View key, std::wstring_view value) override {
    Note("write ", key).WriteString(section, key, value);
  }
  void DeleteValue(View section, View key) override {
    Note("delete ", key).DeleteValue(section, key);
  }
  std::vector<std::string> Take() { return std::exchange(m_calls, {}); }

 private:
  Config& Note(const char* what, View key) const {
    m_calls.push_back(what + std::string(key));
    return *m_values;
  }
  mutable std::vector<std::string> m_calls;
  std::shared_ptr<Config> m_values = OpenFile({});
};

constexpr const char* kSection = "VMManager";

TEST_F(ConfigurationTest, SettingsAreAskedForInTheirOrderAndChangedAsStated) {
  using Calls = std::vector<std::string>;
  const auto config = std::make_shared<NotingConfig>();
  const ScopedMemoryConfig scope(config);
  config->WriteInt(kSection, "MemoryRatio", 0);
  config->Take();
  const auto manager = CVmManager::Create(nullptr);
  EXPECT_EQ(manager->GetMemoryInfo().budget, 32 << 20);
  EXPECT_EQ(config->Take(), (Calls{"read BlockSize", "read MemoryRatio", "read MinMemorySize",
                                   "read ReservedMemory", "read VMDrive", "read MaxDiskSize",
                                   "read Wow64MemoryRatio", "read AvailPhysMemory",
                                   "write AcquiredMemory", "read MaxDiskSize"}));
  VMSTATUS status = manager->GetStatus();
  EXPECT_TRUE(config->Take().empty());
  status.memoryRatio = 44;
  status.maximumDisk = 123456789012;
  CVmManager::WriteVmStatus(&status);
  status.vmDrive = L"/new";
  CVmManager::WriteVmStatus(&status);
  EXPECT_EQ(config->Take(), (Calls{"delete VMDrive", "write MemoryRatio", "write MaxDiskSize",
                                   "delete AcquiredMemory", "write VMDrive", "write MemoryRatio",
                                   "write MaxDiskSize", "delete AcquiredMemory"}));
  EXPECT_EQ(config->ReadInt(kSection, "MemoryRatio", -1), 44);
  EXPECT_EQ(config->ReadInt64(kSection, "MaxDiskSize", -1), 123456789012);
  EXPECT_EQ(config->ReadString(kSection, "VMDrive", L""), L"/new");
  CVmManager::WriteVmStatus(nullptr);
}

TEST_F(ConfigurationTest, ReadsEverySettingWithItsDefault) {
  using Text = std::wstring;
  const auto current = [] {
    const auto c = CVmManagerConfiguration::CurrentConfiguration();
    return std::tuple(c->BlockSize, c->MemoryRatio, c->MinMemorySize, c->ReservedMemory, c->VMDrive,
                      c->MaxDiskSize, c->Wow64MemoryRatio, c->AvailPhysMemory);
  };
  EXPECT_EQ(current(), std::tuple(262144, 70, 32, -1, Text(), 8000, 90, true));
  for (const auto& [key, value] : {std::pair("BlockSize", 64),
                                   {"MemoryRatio", 31},
                                   {"MinMemorySize", 0},
                                   {"ReservedMemory", 77},
                                   {"MaxDiskSize", -9},
                                   {"Wow64MemoryRatio", 12},
                                   {"AvailPhysMemory", 0}}) {
    m_config->WriteInt(kSection, key, value);
  }
  m_config->WriteString(kSection, "VMDrive", L"/swap \u00e9");
  EXPECT_EQ(current(), std::tuple(65536, 31, 0, 77, Text(L"/swap \u00e9"), -9, 12, false));

  // Negative and unrepresentable sizes; 0 is kept for the manager to replace.
  for (const auto& [value, bytes] : {std::pair(-5, 262144), {2097152, 262144}, {0, 0}}) {
    m_config->WriteInt(kSection, "BlockSize", value);
    EXPECT_EQ(std::get<0>(current()), bytes) << value;
  }
}

TEST_F(ConfigurationTest, ManagerKeepsItsSettingsAndReportsThem) {
  m_config->WriteInt(kSection, "MaxDiskSize", 3);
  auto configuration = CVmManagerConfiguration::DefaultConfiguration();
  configuration->MemoryRatio = 0;
  configuration->MinMemorySize = 5;  // exactly the budget
  configuration->BlockSize = 65536;
  configuration->MaxDiskSize = 100;
  configuration->VMDrive = L"/no such folder";
  const auto manager = CVmManager::Create(std::move(configuration));
  EXPECT_EQ(m_config->ReadInt(kSection, "AcquiredMemory", -1), 5);
  // The ceiling is asked of the settings once more; the record's is only shown.
  EXPECT_EQ(std::tuple(manager->GetMemoryCapacityBlocks(), manager->GetDiskLimitBlocks(),
                       manager->GetTotalCapacityBlocks(), manager->GetComfortableBlocks()),
            std::tuple(80, 48, 128, 20));
  EXPECT_EQ(manager->GetMemoryInfo().budget, 5 << 20);
  EXPECT_EQ(manager->GetPhysicalMemory().budget, 5 << 20);
  EXPECT_GT(manager->GetPhysicalMemory().total, 0);
  const auto shown = [](const VMSTATUS& s) {
    return std::tuple(s.blockSize, s.memoryRatio, s.reservedMemory, s.minimumMemory,
                      s.vmDrive.empty(), s.freeDisk > 0, !s.swapFolder.empty());
  };
  EXPECT_EQ(shown(manager->GetStatus()), std::tuple(64, 0, -1, 5, true, true, true));
  EXPECT_EQ(manager->GetStatus().maximumDisk, 100);
  EXPECT_EQ(shown(manager->GetDefaultStatus()), std::tuple(256, 70, -1, 32, true, false, false));
}

TEST_F(ConfigurationTest, VolumesAndLimitsBoundTheSwapFile) {
  const auto create = [](std::int32_t blockSize, std::wstring drive = L"") {
    auto configuration = CVmManagerConfiguration::DefaultConfiguration();
    configuration->BlockSize = blockSize;
    configuration->MemoryRatio = 0;
    configuration->VMDrive = std::move(drive);
    return CVmManager::Create(std::move(configuration));
  };
  platform::MemoryFigures memory{kGiB, kGiB / 4, kGiB, 0, 0};
  platform::Overrides overrides;
  overrides.memory = &memory;
  platform::g_overrides = &overrides;

  overrides.freeBytes = 10 * 262144;
  EXPECT_EQ(create(262144)->GetDiskLimitBlocks(), 8);
  EXPECT_EQ(create(262144)->GetStatus().freeDisk, 2);
  EXPECT_EQ(create(0)->GetBlockSize(), 262144);
  overrides.freeBytes = 262144;  // four fifths of one block are none
  const auto without = create(262144);
  EXPECT_EQ(without->GetDiskLimitBlocks(), 0);
  EXPECT_EQ(without->GetStatus().freeDisk, 0);
  overrides.freeBytes = std::int64_t{1} << 50;
  EXPECT_EQ(create(262144)->GetDiskLimitBlocks(), 32000);
  EXPECT_EQ(create(262144)->GetDefaultStatus().maximumDisk, 8000);
  overrides.fileSizeLimit = 5 * 262144 + 1;
  EXPECT_EQ(create(262144)->GetDiskLimitBlocks(), 5);
  overrides.fileSizeLimit = -1;

  // A RAM disk is memory that must be there.
  overrides.volumeKind = 6;
  EXPECT_EQ(create(262144)->GetDiskLimitBlocks(), 1024 * 8 / 10);
  const std::wstring folder = create(4096)->GetStatus().swapFolder;
  EXPECT_EQ(create(4096, folder)->GetStatus().vmDrive, folder);
  for (const int refused : {0, 1, 2, 4, 5}) {
    overrides.volumeKind = refused;
    EXPECT_EQ(create(4096, folder)->GetStatus().vmDrive, L"") << refused;
  }

  overrides.isWow64 = 1;
  memory.availableVirtual = 40 << 20;
  auto configuration = CVmManagerConfiguration::DefaultConfiguration();
  const auto crowded = CVmManager::Create(std::move(configuration));
  EXPECT_EQ(crowded->GetMemoryInfo().reserve, 0);
  EXPECT_EQ(crowded->GetMemoryInfo().budget, (40 << 20) / 10 * 9);
}

// What the system itself says, and the rule on its own figures.
TEST_F(ConfigurationTest, A32BitProcessOfA64BitWindowsEndsWithItsAddresses) {
  const bool emulated = kWindows && sizeof(void*) == 4;
  EXPECT_EQ(platform::IsWow64(), emulated);
  const auto figures = platform::QueryMemory();
  EXPECT_GT(figures.availableVirtual, 0U);
  CVmManagerConfiguration generous;
  generous.MemoryRatio = 90000;
  const auto budget = vm::ComputeMemoryBudget(generous, figures, platform::IsWow64());
  if (emulated) {
    EXPECT_LT(figures.availableVirtual, 4 * kGiB);
    EXPECT_EQ(budget.reserve, 0);
    EXPECT_EQ(budget.budget, static_cast<std::int64_t>(figures.availableVirtual * 90 / 100));
  } else {
    EXPECT_LE(budget.budget, static_cast<std::int64_t>(figures.totalPhysical));
  }
}

TEST_F(ConfigurationTest, NumberedFoldersTakeTheFirstFreeName) {
  const ScratchFolder folder;
  const auto& root = folder.Path();
  std::filesystem::create_directories(root / "~QV.000");
  EXPECT_EQ(vm::MakeNumberedFolder(root / "~QV", "D:").filename(), "~QV.001");
  EXPECT_EQ(vm::MakeNumberedFolder(root / "~QV", "D:").filename(), "~QV.002");
  try {
    vm::MakeNumberedFolder(root / "none" / "~QV", "D:");
    ADD_FAILURE() << "there is no folder to make them in";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "Disk full: D:");
  }
}

}  // namespace
}  // namespace korin::test
