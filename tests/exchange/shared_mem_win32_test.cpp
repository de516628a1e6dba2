// Foreign objects in the way, and partners that use the system's calls themselves.
#include <windows.h>

#include <functional>

#include "exchange/exchange_fixture.h"

namespace korin::test {
namespace {

namespace fs = std::filesystem;

std::wstring Wide(std::string_view name) { return {name.begin(), name.end()}; }

HANDLE MakeMapping(const Mapping& which, std::int64_t bytes, DWORD protection) {
  return CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, protection, 0, static_cast<DWORD>(bytes),
                            Wide(which.name).c_str());
}

class SystemExchangeTest : public ExchangeTest {};

// Something under the name of a mapping with which no exchange may open. The pages of the
// third are promised only: touching them would be a fault.
TEST_F(SystemExchangeTest, ForeignObjectsAreRefused) {
  for (const Mapping& which : {kImageMapping, kHeaderMapping, kPixelMapping}) {
    const std::function<HANDLE()> obstacles[] = {
        [&] { return MakeMapping(which, which.size > 4096 ? 4096 : 40960, PAGE_READWRITE); },
        [&] { return MakeMapping(which, which.size + 8192, PAGE_READWRITE); },
        [&] { return MakeMapping(which, which.size, PAGE_READWRITE | SEC_RESERVE); },
        [&] { return CreateEventW(nullptr, FALSE, FALSE, Wide(which.name).c_str()); }};
    for (const auto& obstacle : obstacles) {
      const HANDLE foreign = obstacle();
      ASSERT_NE(foreign, nullptr);
      EXPECT_EQ(CSharedMem::CreateFileMappings(1), 0)
          << which.name << ' ' << &obstacle - &obstacles[0];
      CSharedMem::CloseMappingHandles();
      CloseHandle(foreign);
    }
  }
  EXPECT_EQ(CSharedMem::CreateFileMappings(1), 1);
}

// A reader that lets nobody write or delete meanwhile and then takes the file away.
TEST_F(SystemExchangeTest, AReaderOfItsOwnGetsTheFile) {
  exchange::g_maxMappedSamples = 1;
  ASSERT_EQ(CSharedMem::CreateFileMappings(1), 1);
  const CImage image = MakeSample({8, false}, 1);
  ASSERT_EQ(Write(image), 1);
  const HANDLE file = CreateFileW(FilePath().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE) << GetLastError();
  EXPECT_EQ(GetFileSize(file, nullptr), static_cast<DWORD>(image.GetImageSize()));
  CloseHandle(file);
  EXPECT_NE(DeleteFileW(FilePath().c_str()), 0);
  CSharedMem::CloseMappingHandles();
  EXPECT_FALSE(FileExists());
}

TEST_F(SystemExchangeTest, ForeignFilesInTheWayAreRefusedAndKept) {
  exchange::g_maxMappedSamples = 1;
  ASSERT_EQ(CSharedMem::CreateFileMappings(1), 1);
  const CImage image = MakeSample({8, false}, 1);
  const fs::path path = FilePath();
  const fs::path victim = m_temporary.Path() / "victim";
  std::ofstream(victim) << "untouched";
  fs::create_directory(path);
  EXPECT_EQ(CSharedMem::WriteSharedFile(&image), 0);
  EXPECT_TRUE(fs::is_directory(path));
  fs::remove(path);
  if (CreateHardLinkW(path.c_str(), victim.c_str(), nullptr) != 0) {
    EXPECT_EQ(CSharedMem::WriteSharedFile(&image), 0);
    EXPECT_EQ(Contents(victim), "untouched");
    fs::remove(path);
  }
  std::ofstream(path) << "held by somebody who shares nothing";
  const HANDLE held =
      CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  EXPECT_EQ(CSharedMem::WriteSharedFile(&image), 0);
  CloseHandle(held);
  EXPECT_EQ(CSharedMem::WriteSharedFile(&image), 1);
  EXPECT_EQ(fs::file_size(path), static_cast<std::uintmax_t>(image.GetImageSize()));
}

}  // namespace
}  // namespace korin::test
