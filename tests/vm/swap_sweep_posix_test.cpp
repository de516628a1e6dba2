// Swap files as other processes see them: who may read them, what a killed process
// leaves and what a sweep takes.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <random>

#include "platform/swap_file.h"
#include "platform/swap_sweep.h"
#include "platform/text.h"
#include "platform/volume.h"
#include "support/temporary_folder.h"
#include "vm/vm_test_support.h"

namespace korin::test {
namespace {

namespace fs = std::filesystem;
using platform::Call;
using platform::Fault;
using platform::SwapFile;
using platform::SweepSwapFiles;

// Managers use a temporary folder of the test's own.
class SwapSweepTest : public VmTest {
 protected:
  std::set<std::string> Names() const { return test::Names(m_folder); }
  fs::path Touch(const std::string& name) const {
    std::ofstream(m_folder / name) << "x";
    return m_folder / name;
  }

  const OwnTemporaryFolder m_own;
  const fs::path& m_folder = m_own.Path();
};

TEST_F(SwapSweepTest, SwapFilesArePrivateLockedAndGoOnClose) {
  SwapFile file;
  ASSERT_TRUE(file.Create(m_folder));
  const std::string name = file.Path().filename().string();
  EXPECT_EQ(Names(), std::set<std::string>{name});
  EXPECT_EQ(platform::ClassifySwapName(name), platform::SwapName::kFile);
  EXPECT_TRUE(std::all_of(name.begin() + 3, name.end() - 4, [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
  })) << name;
  struct stat info {};
  stat(file.Path().c_str(), &info);
  EXPECT_EQ(info.st_mode & 07777, 0600U);
  const int other = open(file.Path().c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_NE(flock(other, LOCK_EX | LOCK_NB), 0);
  close(other);
  // Space is really there, not promised.
  ASSERT_TRUE(file.SetSize(1 << 20));
  stat(file.Path().c_str(), &info);
  EXPECT_GE(info.st_blocks * 512, 1 << 20);
  file.Close();
  EXPECT_TRUE(Names().empty());

  // Someone else's file of the same name stays.
  ASSERT_TRUE(file.Create(m_folder));
  fs::rename(file.Path(), m_folder / "moved");
  std::ofstream(file.Path()) << "not mine";
  const fs::path path = file.Path();
  file.Close();
  EXPECT_TRUE(fs::exists(path));
  EXPECT_TRUE(fs::exists(m_folder / "moved"));
}

TEST_F(SwapSweepTest, CreationFailsCleanly) {
  {
    const FaultAt at(1, Fault::kNoSpace, true, {Call::kOpenFile});
    SwapFile file;
    EXPECT_FALSE(file.Create(m_folder));
  }
  EXPECT_TRUE(Names().empty());
  const FaultAt at(1, Fault::kIoError, true, {Call::kOpenFile});
  const auto manager = CVmManager::Create(CVmManagerConfiguration::DefaultConfiguration());
  EXPECT_EQ(manager->GetDiskLimitBlocks(), 0);
  EXPECT_EQ(manager->GetStatus().freeDisk, 0);
}

TEST_F(SwapSweepTest, NamesAreComparedWhole) {
  using platform::ClassifySwapName;
  using platform::SwapName;
  for (const char* name : {"~QV1.tmp", "~QVABCD.tmp", "~QV_VMIMAGE.tmp", "~QV..tmp", "~QV.0.tmp"}) {
    EXPECT_EQ(ClassifySwapName(name), SwapName::kFile) << name;
  }
  for (const char* name : {"~QV.000", "~QV.999", "~QV.tmp", "~QV.anything at all"}) {
    EXPECT_EQ(ClassifySwapName(name), SwapName::kFolder) << name;
  }
  for (const char* name : {"~QV", "~QV.", "~QVAB.TMP", "~QV1.tmp.bak", "x~QV1.tmp", "~qv1.tmp", "",
                           "~QV1\n.tmp", "~QV.\n"}) {
    EXPECT_EQ(ClassifySwapName(name), SwapName::kOther) << name;
  }
}

TEST_F(SwapSweepTest, ASweepTakesLeftoversAndSparesTheRest) {
  Touch("~QV1.tmp");
  Touch("~QV.tmp");
  Touch("~QV2.tmp.bak");
  Touch("other.tmp");
  Touch("~QV\xff\xfe.tmp");  // no valid text
  fs::create_directory(m_folder / "~QVfolder.tmp");
  fs::create_directory(m_folder / "~QVfull.tmp");
  Touch("~QVfull.tmp/kept");
  // Links go themselves; what they point to stays.
  const fs::path target = Touch("target");
  fs::create_directory(m_folder / "folder");
  Touch("folder/inside");
  fs::create_symlink(target, m_folder / "~QV3.tmp");
  fs::create_directory_symlink(m_folder / "folder", m_folder / "~QV.link");
  // Folders with all that is in them, nothing that is only linked from them.
  fs::create_directories(m_folder / "~QV.000" / "deep" / "deeper");
  Touch("~QV.000/~QV4.tmp");
  Touch("~QV.000/deep/file");
  fs::create_directory_symlink(m_folder / "folder", m_folder / "~QV.000" / "deep" / "link");
  // A pipe must neither block the sweep nor go.
  mkfifo((m_folder / "~QV5.tmp").c_str(), 0600);
  // What somebody holds, shared or not; in a folder it keeps the folder.
  const fs::path held = Touch("~QV8.tmp");
  const int shared = open(held.c_str(), O_RDONLY | O_CLOEXEC);
  flock(shared, LOCK_SH);
  fs::create_directory(m_folder / "~QV.001");
  SwapFile inFolder;
  ASSERT_TRUE(inFolder.Create(m_folder / "~QV.001"));
  Touch("~QV.001/~QV6.tmp");
  if (geteuid() == 0) {
    const fs::path foreign = Touch("~QV7.tmp");
    ASSERT_EQ(chown(foreign.c_str(), 12345, 12345), 0);
  }

  SweepSwapFiles(m_folder);
  std::set<std::string> left = {"~QV2.tmp.bak", "other.tmp", "~QVfull.tmp", "target",
                                "folder",       "~QV5.tmp",  "~QV.001",     "~QV8.tmp"};
  if (geteuid() == 0) left.insert("~QV7.tmp");
  EXPECT_EQ(Names(), left);
  EXPECT_TRUE(fs::exists(m_folder / "folder" / "inside"));
  EXPECT_TRUE(fs::exists(m_folder / "~QV.001" / "~QV6.tmp"));

  close(shared);
  inFolder.Close();
  SweepSwapFiles(m_folder);
  EXPECT_FALSE(fs::exists(m_folder / "~QV.001"));
  EXPECT_FALSE(fs::exists(held));
  SweepSwapFiles(m_folder / "none");

  // Failing calls are skipped.
  for (const Call call : {Call::kOpenFile, Call::kLockFile, Call::kRemoveFile}) {
    Touch("~QV1.tmp");
    const FaultAt at(1, Fault::kIoError, true, {call});
    SweepSwapFiles(m_folder);
    EXPECT_TRUE(fs::exists(m_folder / "~QV1.tmp"));
  }
}

// Several processes page in one folder. Two at a time are killed at any moment, while
// starting, sweeping, growing or paging; two live on and must neither lose their file
// nor a byte in it.
TEST_F(SwapSweepTest, ManagersRemoveWhatKilledProcessesLeftAndNothingThatLives) {
  constexpr int kRounds = 300;
  const auto first = CreateManagerForTest(kBlock, 2, 50);
  CVmImage image(first, 8, kBlock, 6, 1, nullptr);
  ASSERT_TRUE(FillPattern(image, 1));
  int stop[2], ready[2];
  ASSERT_EQ(pipe(stop), 0);
  ASSERT_EQ(pipe(ready), 0);
  const pid_t neighbour = fork();
  if (neighbour == 0) {
    close(stop[1]);
    fcntl(stop[0], F_SETFL, O_NONBLOCK);
    const auto manager = CreateManagerForTest(kBlock, 2, 50);
    CVmImage own(manager, 8, kBlock, 6, 1, nullptr);
    bool kept = FillPattern(own, 3) && write(ready[1], "r", 1) == 1;
    for (char byte = 0; kept && read(stop[0], &byte, 1) < 0;) kept = HasPattern(own, 3);
    _exit(kept ? 0 : 1);
  }
  close(stop[0]);
  close(ready[1]);
  char answer = 0;
  ASSERT_EQ(read(ready[0], &answer, 1), 1);
  close(ready[0]);
  const auto living = Names();
  ASSERT_EQ(living.size(), 2U);

  std::mt19937 random(5);
  int leftovers = 0;
  for (int round = 0; round < kRounds && !HasFailure(); ++round) {
    pid_t children[2];
    for (pid_t& child : children) {
      child = fork();
      if (child != 0) continue;
      for (;;) {
        const auto manager = CreateManagerForTest(kBlock, 2, 50);
        CVmImage busy(manager, 8, kBlock, 9, 1, nullptr);
        for (int i = 0; i < 10; ++i) FillPattern(busy, 2);
      }
    }
    for (const pid_t child : children) {
      usleep(static_cast<useconds_t>(random() % 6000));
      kill(child, SIGKILL);
      waitpid(child, nullptr, 0);
    }
    leftovers += Names().size() > 2 ? 1 : 0;
    {
      const auto second = CreateManagerForTest(kBlock, 2, 50);
      const auto names = Names();
      EXPECT_EQ(names.size(), 3U);
      EXPECT_TRUE(std::includes(names.begin(), names.end(), living.begin(), living.end()));
    }
    EXPECT_EQ(Names(), living);
    EXPECT_TRUE(HasPattern(image, 1));
  }
  EXPECT_GT(leftovers, kRounds / 10) << "too few were killed at work";
  close(stop[1]);
  int status = -1;
  waitpid(neighbour, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a neighbour lost its pixels";
  CVmManager::DeleteAllSwapFiles(nullptr);
  EXPECT_EQ(Names().size(), 1U);  // the neighbour ended without cleaning up
  EXPECT_TRUE(HasPattern(image, 1));
}

TEST_F(SwapSweepTest, AForkedChildNeitherUsesNorRemovesTheFile) {
  auto manager = CreateManagerForTest(kBlock, 2, 50);
  auto image = std::make_unique<CVmImage>(manager, 8, kBlock, 6, 1, nullptr);
  ASSERT_TRUE(FillPattern(*image, 1));
  const pid_t child = fork();
  if (child == 0) {
    int wrong = 0;
    for (std::int64_t i = 0; i < 6; ++i) {
      const bool resident = image->GetVmHandle()->GetType(i) == CVmBlock::Type::Memory;
      const bool came = image->GetBlockOnMemory(i, true) != nullptr;
      wrong += resident == came ? 0 : 1;
    }
    image.reset();
    manager.reset();
    _exit(wrong);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Names().size(), 1U);
  EXPECT_TRUE(HasPattern(*image, 1));
}

TEST_F(SwapSweepTest, TheConfiguredFolderIsUsedAndSwept) {
  // Its names need not be text.
  const fs::path folder = m_folder / "swap \xff\xc3\xa9";
  fs::create_directory(folder);
  std::ofstream(folder / "~QVOLD.tmp") << "x";
  const auto create = [&](int kind) {
    platform::Overrides overrides;
    overrides.volumeKind = kind;
    platform::g_overrides = &overrides;
    auto configuration = CVmManagerConfiguration::DefaultConfiguration();
    configuration->VMDrive = platform::PathToWide(folder);
    auto manager = CVmManager::Create(std::move(configuration));
    platform::g_overrides = nullptr;
    return manager;
  };
  {
    const auto refused = create(4);
    EXPECT_EQ(refused->GetStatus().swapFolder, platform::PathToWide(m_folder));
    EXPECT_TRUE(fs::exists(folder / "~QVOLD.tmp"));  // never entered
  }
  const auto manager = create(3);
  EXPECT_EQ(platform::WideToPath(manager->GetStatus().swapFolder), folder);
  EXPECT_FALSE(fs::exists(folder / "~QVOLD.tmp"));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 1);
}

TEST_F(SwapSweepTest, MissingTemporaryFoldersAndFreeSpaceAreErrors) {
  {
    const FaultAt at(1, Fault::kIoError, true, {Call::kQueryVolume});
    EXPECT_THROW(CVmManager::Create(nullptr), fs::filesystem_error);
  }
  const ScopedVariable missing("TMPDIR", (m_folder / "none").c_str());
  EXPECT_THROW(CVmManager::Create(nullptr), fs::filesystem_error);
  CVmManager::DeleteAllSwapFiles(nullptr);
  EXPECT_EQ(platform::GetVolumeKind(m_folder / "none"), platform::VolumeKind::kMissing);
}

}  // namespace
}  // namespace korin::test
