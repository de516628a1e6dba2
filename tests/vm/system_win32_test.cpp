// Memory and swap files as the system and other processes see them.
#include <windows.h>
// Behind the header that it builds on.
#include <psapi.h>

#include <fstream>

#include "platform/memory_pages.h"
#include "platform/process.h"
#include "platform/swap_file.h"
#include "platform/swap_sweep.h"
#include "platform/volume.h"
#include "support/temporary_folder.h"
#include "vm/vm_test_support.h"

namespace korin::test {
namespace {

namespace fs = std::filesystem;
using platform::SwapFile;
using platform::SweepSwapFiles;

class SystemTest : public VmTest {
 protected:
  fs::path Touch(const fs::path& name) const {
    fs::create_directories((m_folder / name).parent_path());
    std::ofstream(m_folder / name) << "x";
    return m_folder / name;
  }
  static DWORD OpenError(const fs::path& file, DWORD access, DWORD share) {
    const HANDLE handle =
        CreateFileW(file.c_str(), access, share, nullptr, OPEN_EXISTING, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return GetLastError();
    CloseHandle(handle);
    return 0;
  }

  const OwnTemporaryFolder m_own;
  const fs::path& m_folder = m_own.Path();
};

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

TEST_F(SystemTest, BlocksArePagesOfTheSystem) {
  const auto memory = CVmMemoryInterface::Alloc(8 << 20);
  MEMORY_BASIC_INFORMATION info{};
  ASSERT_NE(VirtualQuery(memory->GetAddress(), &info, sizeof info), 0U);
  EXPECT_EQ(info.Type, DWORD{MEM_PRIVATE});
  EXPECT_EQ(info.State, DWORD{MEM_COMMIT});
  EXPECT_EQ(info.Protect, DWORD{PAGE_READWRITE});
  void* const pages = platform::MapPages(1 << 20);
  ASSERT_TRUE(platform::UnmapPages(pages, 1 << 20));
  ASSERT_NE(VirtualQuery(pages, &info, sizeof info), 0U);
  EXPECT_EQ(info.State, DWORD{MEM_FREE});
}

TEST_F(SystemTest, FiguresAreTheSystems) {
  MEMORYSTATUSEX status{};
  status.dwLength = sizeof status;
  ASSERT_NE(GlobalMemoryStatusEx(&status), 0);
  PERFORMANCE_INFORMATION info{};
  ASSERT_NE(GetPerformanceInfo(&info, sizeof info), 0);
  const auto figures = platform::QueryMemory();
  EXPECT_EQ(figures.totalPhysical, status.ullTotalPhys);
  EXPECT_EQ(figures.totalPhysical / info.PageSize, info.PhysicalTotal);
  EXPECT_LE(figures.availablePhysical, figures.totalPhysical);
  EXPECT_LE(figures.availableVirtual, status.ullTotalVirtual);
  EXPECT_EQ(figures.kernelTotal / info.PageSize, info.KernelTotal);
  EXPECT_LE(figures.systemCache, figures.totalPhysical);
}

TEST_F(SystemTest, SwapFilesAreReadByOthersAtMostAndGoOnClose) {
  const fs::path folder = m_folder / u8"\u00E9 \u65E5 \u0416";
  fs::create_directory(folder);
  SwapFile file;
  ASSERT_TRUE(file.Create(folder));
  const std::string name = file.Path().filename().string();
  EXPECT_EQ(platform::ClassifySwapName(name), platform::SwapName::kFile) << name;
  EXPECT_EQ(name.find_first_not_of("0123456789abcdefABCDEF", 3), name.size() - 4) << name;
  EXPECT_EQ(OpenError(file.Path(), GENERIC_READ, kShareAll), 0U);
  EXPECT_EQ(OpenError(file.Path(), GENERIC_WRITE, kShareAll), DWORD{ERROR_SHARING_VIOLATION});
  EXPECT_EQ(OpenError(file.Path(), DELETE, kShareAll), DWORD{ERROR_SHARING_VIOLATION});
  ASSERT_TRUE(file.SetSize(5 << 20));
  EXPECT_EQ(fs::file_size(file.Path()), 5U << 20);
  file.Close();
  EXPECT_TRUE(fs::is_empty(folder));
  EXPECT_FALSE(file.Create(folder / "none"));
  EXPECT_FALSE(file.Create(Touch("no folder")));
}

TEST_F(SystemTest, ASweepTakesLeftoversAndSparesTheRest) {
  for (const char* name :
       {"~QV1.tmp", "~QV.tmp", "~QVfolder.tmp/kept", "~QV2.tmp.bak", "other.tmp",
        "~QV.000/deep/deeper/x", "~QV.000/~QV4.tmp", "~QV.001/~QV5.tmp", "~QV.001/x"}) {
    Touch(name);
  }
  fs::create_directory(m_folder / "~QVempty.tmp");
  Touch(u8"~QV\u65E5.tmp");
  // Held by somebody who shares everything, alone or in a folder.
  const auto hold = [&](const fs::path& file) {
    return CreateFileW(file.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr);
  };
  const HANDLE held[] = {hold(Touch("~QV6.tmp")), hold(m_folder / "~QV.001" / "~QV5.tmp")};
  SweepSwapFiles(m_folder);
  EXPECT_EQ(Names(m_folder), (std::set<std::string>{"~QV.001", "~QV2.tmp.bak", "~QV6.tmp",
                                                    "~QVfolder.tmp", "other.tmp"}));
  EXPECT_EQ(Names(m_folder / "~QV.001").size(), 2U);
  for (const HANDLE handle : held) CloseHandle(handle);
  SweepSwapFiles(m_folder);
  EXPECT_EQ(Names(m_folder), (std::set<std::string>{"~QV2.tmp.bak", "~QVfolder.tmp", "other.tmp"}));
  SweepSwapFiles(m_folder / "none");
}

TEST_F(SystemTest, ABareDriveGetsNumberedFolders) {
  const fs::path drive = m_folder.root_name();
  const auto create = [&] {
    auto configuration = CVmManagerConfiguration::DefaultConfiguration();
    configuration->VMDrive = drive.native();
    return CVmManager::Create(std::move(configuration));
  };
  ASSERT_TRUE(platform::IsBareDrive(drive));
  if (platform::GetVolumeKind(drive) != platform::VolumeKind::kFixed) {
    GTEST_SKIP() << "the temporary folder lies on no fixed disk";
  }
  const std::wstring prefix = drive.native() + L"\\~QV.";
  auto first = create();
  const fs::path one = first->GetStatus().swapFolder;
  auto second = create();
  const fs::path two = second->GetStatus().swapFolder;
  EXPECT_EQ(second->GetStatus().vmDrive, drive.native());
  for (const fs::path& folder : {one, two}) {
    EXPECT_EQ(folder.native().substr(0, prefix.size()), prefix);
    EXPECT_EQ(folder.native().size(), prefix.size() + 3);
    EXPECT_EQ(Names(folder).size(), 1U) << "the swap file";
  }
  EXPECT_NE(one, two) << "the first one lives";
  auto image = std::make_unique<CVmImage>(second, 8, kBlock, 6, 1, nullptr);
  first.reset();
  EXPECT_TRUE(fs::exists(one));
  auto configuration = CVmManagerConfiguration::DefaultConfiguration();
  configuration->VMDrive = drive.native();
  CVmManager::DeleteAllSwapFiles(configuration);
  EXPECT_FALSE(fs::exists(one));
  EXPECT_TRUE(fs::exists(two));
  EXPECT_TRUE(FillPattern(*image, 1) && HasPattern(*image, 1));
  image.reset();
  second.reset();
  CVmManager::DeleteAllSwapFiles(configuration);
  EXPECT_FALSE(fs::exists(two));
}

TEST_F(SystemTest, TheConfiguredFolderIsUsedOrLeftOut) {
  const auto create = [&](const fs::path& folder) {
    auto configuration = CVmManagerConfiguration::DefaultConfiguration();
    configuration->VMDrive = folder.native();
    return CVmManager::Create(std::move(configuration))->GetStatus();
  };
  const fs::path folder = m_folder / u8"\u00E9 \u65E5";
  fs::create_directory(folder);
  if (platform::GetVolumeKind(folder) == platform::VolumeKind::kFixed) {
    EXPECT_EQ(create(folder).swapFolder, folder.native());
  }
  for (const fs::path& other : {m_folder / "none", fs::path(L"\\\\.\\nowhere"), fs::path(L"?:")}) {
    EXPECT_EQ(create(other).vmDrive, L"") << other;
    EXPECT_EQ(fs::path(create(other).swapFolder) / "", m_folder / "") << other;
  }
}

}  // namespace
}  // namespace korin::test
