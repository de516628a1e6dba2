// Killed partners, foreign objects in the way, and what else only the system's own
// calls can arrange.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "exchange/exchange_fixture.h"
#include "support/fault_at.h"

extern char** environ;

namespace korin::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

std::string ObjectName(std::string_view name) { return "/" + std::string(name); }

bool ObjectExists(std::string_view name) {
  const int file = shm_open(ObjectName(name).c_str(), O_RDONLY, 0);
  if (file >= 0) close(file);
  return file >= 0;
}

bool IsSoonGone(std::string_view name) {
  return Soon([&] { return !ObjectExists(name); });
}

class PosixExchangeTest : public ExchangeTest {
 protected:
  ~PosixExchangeTest() override {
    CSharedMem::CloseMappingHandles();
    for (const auto name : platform::kExchangeMappingNames) {
      shm_unlink(ObjectName(name).c_str());
    }
  }

  const std::filesystem::path& m_folder = m_temporary.Path();
};

pid_t StartChurn() {
  std::string program = EXCHANGE_PARTNER;
  std::string argument = "churn";
  char* const argv[] = {program.data(), argument.data(), nullptr};
  pid_t child = 0;
  return posix_spawn(&child, program.c_str(), nullptr, nullptr, argv, environ) == 0 ? child : -1;
}

TEST_F(PosixExchangeTest, KilledPartnersLeaveNothingInTheWay) {
  const CImage image = MakeSample({8, false}, 1);
  CImage expected = MakeReceived({8, false}, false, 0);
  const std::string description = Describe(expected);
  std::mt19937 random(11);
  const auto managed = MakeSampleManager(0);
  // How long a partner takes to get going here.
  const auto start = steady_clock::now();
  const pid_t first = StartChurn();
  ASSERT_GT(first, 0);
  while (!ObjectExists(platform::kImageMappingName)) {
    ASSERT_LT(steady_clock::now() - start, std::chrono::seconds(60));
    usleep(200);
  }
  const auto startup =
      std::chrono::duration_cast<std::chrono::microseconds>(steady_clock::now() - start);
  kill(first, SIGKILL);
  waitpid(first, nullptr, 0);
  int found = 0;
  for (int round = 0; round < 200; ++round) {
    // In every other round this process has the exchange open all the time.
    const bool open = round % 2 == 0;
    ASSERT_TRUE(!open || CSharedMem::CreateFileMappings(1) == 1);
    const pid_t child = StartChurn();
    ASSERT_GT(child, 0);
    const auto end = steady_clock::now() + startup + std::chrono::microseconds(random() % 8000);
    while (steady_clock::now() < end) {
      if (!open) {
        usleep(100);
        continue;
      }
      CImage other;  // out of turn: any answer, but no harm
      CSharedMem::ReadSharedMemory(managed, &other, 1);
    }
    kill(child, SIGKILL);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    found += FileExists() || (!open && ObjectExists(platform::kImageMappingName)) ? 1 : 0;
    const auto before = steady_clock::now();
    ASSERT_EQ(CSharedMem::CreateFileMappings(1), 1) << round;
    exchange::g_maxMappedSamples = round % 4 < 2 ? 1 : 1000000;
    ASSERT_EQ(Write(image), 1) << round;
    CImage received;
    ASSERT_EQ(CSharedMem::ReadSharedMemory(managed, &received, 1), 1) << round;
    EXPECT_LT(steady_clock::now() - before, std::chrono::seconds(2));
    ASSERT_EQ(Describe(received), description);
    CSharedMem::CloseMappingHandles();
    for (const auto name : platform::kExchangeMappingNames) {
      ASSERT_TRUE(IsSoonGone(name)) << name << ' ' << round;
    }
    MakeSampleManager(0);  // sweeps
    ASSERT_FALSE(FileExists()) << round;
  }
  EXPECT_GT(found, 20) << "too few partners were killed at work";
}

TEST_F(PosixExchangeTest, ManagersClearTheMemoryOfKilledPartners) {
  const pid_t child = StartChurn();
  while (!ObjectExists(platform::kPixelMappingName)) usleep(200);
  kill(child, SIGSTOP);
  MakeSampleManager(0);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  MakeSampleManager(0);
  for (const auto name : platform::kExchangeMappingNames) EXPECT_TRUE(IsSoonGone(name)) << name;
  EXPECT_FALSE(FileExists());
}

TEST_F(PosixExchangeTest, FirstToOpenFindsZerosAndTheLastRemoves) {
  const std::string object = ObjectName(platform::kImageMappingName);
  const int stale = shm_open(object.c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(write(stale, "left by a killed process", 24), 24);
  close(stale);
  ASSERT_EQ(CSharedMem::CreateFileMappings(0), 1);
  const auto bytes = RawBytes(kImageMapping);
  EXPECT_EQ(bytes, std::vector<BYTE>(wire::image::kBytes, 0));
  struct stat info {};
  ASSERT_EQ(stat(("/dev/shm" + object).c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600U);
  {
    platform::SharedMapping other;
    EXPECT_FALSE(other.Open(platform::kImageMappingName, 1000)) << "another size";
    ASSERT_TRUE(other.Open(platform::kImageMappingName, wire::image::kBytes));
    CSharedMem::CloseMappingHandles();
    EXPECT_TRUE(platform::IsSharedMappingHeld(platform::kImageMappingName));
    {
      const FaultAt refused(1, platform::Fault::kNoMemory, true, {platform::Call::kOpenFile});
      EXPECT_TRUE(platform::IsSharedMappingHeld(platform::kPixelMappingName)) << "who can tell";
    }
    EXPECT_FALSE(platform::IsSharedMappingHeld(platform::kPixelMappingName));
    // A child that ends does not end its parent's use.
    const pid_t child = fork();
    if (child == 0) {
      other.Close();
      _exit(0);
    }
    waitpid(child, nullptr, 0);
    EXPECT_TRUE(platform::IsSharedMappingHeld(platform::kImageMappingName));
    EXPECT_TRUE(ObjectExists(platform::kImageMappingName));
  }
  EXPECT_TRUE(IsSoonGone(platform::kImageMappingName));
}

// Something under the name of the image mapping with which no exchange may open.
TEST_F(PosixExchangeTest, ForeignObjectsAreRefusedAndKept) {
  const std::string object = ObjectName(platform::kImageMappingName);
  const std::filesystem::path path = "/dev/shm" + object;
  const auto makeObject = [&](mode_t mode) {
    const int file = shm_open(object.c_str(), O_RDWR | O_CREAT, 0600);
    EXPECT_EQ(fchmod(file, mode), 0);
    return file;
  };
  const std::filesystem::path victim = m_folder / "victim";
  const std::function<void()> obstacles[] = {
      [&] { close(makeObject(0660)); },
      [&] { close(makeObject(0604)); },
      [&] {
        std::ofstream(victim) << "untouched";
        std::filesystem::create_symlink(victim, path);
      },
      [&] { std::filesystem::create_symlink(m_folder / "nothing", path); },
      [&] { EXPECT_EQ(mkfifo(path.c_str(), 0600), 0); },
      [&] {
        const int file = makeObject(0600);
        // Only the superuser can give an object away; others open theirs to all.
        const int done = geteuid() == 0 ? fchown(file, 65534, 0) : fchmod(file, 0666);
        EXPECT_EQ(done, 0);
        close(file);
      }};
  for (const auto& obstacle : obstacles) {
    obstacle();
    const auto before = steady_clock::now();
    EXPECT_EQ(CSharedMem::CreateFileMappings(1), 0);
    EXPECT_FALSE(platform::IsSharedMappingHeld(platform::kImageMappingName));
    EXPECT_LT(steady_clock::now() - before, std::chrono::seconds(2));
    EXPECT_TRUE(std::filesystem::exists(std::filesystem::symlink_status(path)));
    ASSERT_TRUE(std::filesystem::remove(path));
    CSharedMem::CloseMappingHandles();
  }
  EXPECT_EQ(Contents(victim), "untouched");
  EXPECT_FALSE(std::filesystem::exists(m_folder / "nothing"));
  // The same for the pixels' part, which takes the others with it.
  std::filesystem::create_symlink(victim, "/dev/shm" + ObjectName(platform::kPixelMappingName));
  EXPECT_EQ(CSharedMem::CreateFileMappings(1), 0);
  EXPECT_TRUE(IsSoonGone(platform::kImageMappingName));
  EXPECT_TRUE(IsSoonGone(platform::kHeaderMappingName));
}

TEST_F(PosixExchangeTest, StoppedProcessDoesNotHangTheNext) {
  ASSERT_EQ(CSharedMem::CreateFileMappings(0), 1);
  const int file = shm_open(ObjectName(platform::kHeaderMappingName).c_str(), O_RDWR, 0);
  CSharedMem::CloseMappingHandles();
  // The name is gone but for a process that stopped while it had the object alone.
  close(file);
  const int alone =
      shm_open(ObjectName(platform::kHeaderMappingName).c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(flock(alone, LOCK_EX | LOCK_NB), 0);
  const auto before = steady_clock::now();
  EXPECT_EQ(CSharedMem::CreateFileMappings(0), 0);
  EXPECT_LT(steady_clock::now() - before, std::chrono::seconds(3));
  EXPECT_TRUE(ObjectExists(platform::kImageMappingName)) << "what was opened stays open";
  close(alone);
  EXPECT_EQ(CSharedMem::CreateFileMappings(0), 1);
}

TEST_F(PosixExchangeTest, PartnerThatShrinksAnObjectDoesNoHarm) {
  ASSERT_EQ(CSharedMem::CreateFileMappings(1), 1);
  const CImage image = MakeSample({-32, false}, 1);
  ASSERT_EQ(Write(image), 1);
  for (const auto name : platform::kExchangeMappingNames) {
    const int file = shm_open(ObjectName(name).c_str(), O_RDWR, 0);
    struct stat info {};
    ASSERT_EQ(fstat(file, &info), 0);
    ASSERT_EQ(ftruncate(file, 100), 0);
    CImage received;
    EXPECT_EQ(Read(received), 0) << name;
    ASSERT_EQ(ftruncate(file, info.st_size), 0);
    close(file);
    ASSERT_EQ(Write(image), 1);
    if (received.Store() != nullptr) {
      // Pixels that did not arrive are 0, not what the memory held before.
      const auto pixels = ReadPixels<float>(received);
      EXPECT_EQ(std::count(pixels.begin() + 25, pixels.end(), 0.0F),
                static_cast<std::ptrdiff_t>(pixels.size()) - 25);
    }
  }
}

TEST_F(PosixExchangeTest, ForeignFilesInTheWayAreRefusedAndKept) {
  exchange::g_maxMappedSamples = 1;
  ASSERT_EQ(CSharedMem::CreateFileMappings(1), 1);
  CImage image = MakeSample({8, false}, 1);
  const auto path = FilePath();
  ASSERT_EQ(path.parent_path(), m_folder);
  const auto victim = m_folder / "victim";
  const std::string enough(5000, 'v');
  std::ofstream(victim) << enough;
  chmod(victim.c_str(), 0600);
  struct Obstacle {
    std::function<void()> make;
    int writeAnswer;
  };
  const Obstacle obstacles[] = {
      {[&] { std::filesystem::create_symlink(victim, path); }, 0},
      {[&] { std::filesystem::create_hard_link(victim, path); }, 0},
      {[&] { std::filesystem::create_directory(path); }, 0},
      {[&] { EXPECT_EQ(mkfifo(path.c_str(), 0600), 0); }, 0},
      {[&] {
         std::ofstream(path) << enough;
         EXPECT_TRUE(geteuid() != 0 || chown(path.c_str(), 65534, 0) == 0);
       },
       geteuid() == 0 ? 0 : 1},
      // An own file that others may read: not trusted, but replaced.
      {[&] {
         std::ofstream(path) << enough;
         chmod(path.c_str(), 0644);
       },
       1}};
  for (const Obstacle& obstacle : obstacles) {
    obstacle.make();
    CImage received = MakeSample({8, false}, 1);
    if (!std::filesystem::is_regular_file(std::filesystem::symlink_status(path)) ||
        std::filesystem::hard_link_count(path) == 1) {
      EXPECT_EQ(CSharedMem::ReadSharedFile(m_manager, &received), 0);
    }
    EXPECT_EQ(CSharedMem::WriteSharedFile(&image), obstacle.writeAnswer);
    EXPECT_TRUE(std::filesystem::exists(std::filesystem::symlink_status(path)));
    std::filesystem::remove(path);
  }
  EXPECT_EQ(Contents(victim), enough);
  ASSERT_EQ(CSharedMem::WriteSharedFile(&image), 1);
  EXPECT_EQ(std::filesystem::status(path).permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(PosixExchangeTest, FileSizeLimitOfTheProcessIsAnAnswer) {
  exchange::g_maxMappedSamples = 1;
  ASSERT_EQ(CSharedMem::CreateFileMappings(1), 1);
  const CImage image = MakeSample({8, false}, 1);
  rlimit former{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &former), 0);
  rlimit small = former;
  small.rlim_cur = 2000;  // going past it would end the process
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  EXPECT_EQ(CSharedMem::WriteSharedFile(&image), 0);
  CSharedMem::CloseMappingHandles();
  EXPECT_EQ(CSharedMem::CreateFileMappings(0), 0);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &former), 0);
  EXPECT_FALSE(FileExists());
}

}  // namespace
}  // namespace korin::test
