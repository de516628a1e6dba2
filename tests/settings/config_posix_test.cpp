#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <thread>

#include "platform/user_folders.h"
#include "settings/settings_file.h"
#include "support/scoped_variable.h"

namespace korin {
namespace {

namespace fs = std::filesystem;
using test::ScopedVariable;
using test::SettingsFile;

unsigned Mode(const fs::path& path) {
  struct stat status {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0);
  return status.st_mode & 07777;
}

class SettingsFilePosix : public SettingsFile {};

TEST_F(SettingsFilePosix, FoldersAndFilesAreTheUsersOwn) {
  const auto old = ::umask(0);
  Open()->WriteInt("a", "b", 1);
  ::umask(old);
  EXPECT_EQ(Mode(file), 0600U);
  EXPECT_EQ(Mode(file.parent_path()), 0700U);
  // An existing file keeps what its owner chose.
  ::chmod(file.c_str(), 0644);
  Open()->WriteInt("a", "b", 2);
  EXPECT_EQ(Mode(file), 0644U);
  ::chmod(file.c_str(), 0444);
  Open()->WriteInt("a", "b", 3);
  EXPECT_EQ(Stored("b"), 2) << "marked read-only";
  EXPECT_EQ(Leftovers(), 0);
}

TEST_F(SettingsFilePosix, LinksAreFollowedAndStay) {
  Put("[a]\nb = 1\n");
  const fs::path link = folder / "link.ini";
  fs::create_symlink("sub/test.ini", link);
  Config::OpenFile(link)->WriteInt("a", "b", 2);
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(Stored("b"), 2);

  const fs::path dangling = folder / "dangling.ini";
  fs::create_symlink("nowhere.ini", dangling);
  const auto config = Config::OpenFile(dangling);
  config->WriteInt("a", "b", 3);
  EXPECT_EQ(config->ReadInt("a", "b", 0), 3);
  EXPECT_TRUE(fs::is_symlink(dangling));

  // Nobody writes to a pipe: reading it must not wait.
  fs::remove(file);
  ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
  const auto pipe = Open();
  pipe->WriteInt("a", "b", 4);
  EXPECT_EQ(pipe->ReadInt("a", "b", 0), 4);
  EXPECT_TRUE(fs::is_fifo(file));
}

// Traps in place of the helper files: links lead nowhere, a stuck holder is given up.
TEST_F(SettingsFilePosix, HelperFilesInTheWay) {
  Put("[a]\nb = 1\n");
  const fs::path victim = folder / "victim";
  std::ofstream(victim) << "precious";
  fs::path helper = file;
  fs::create_symlink(victim, helper += ".new");
  Open()->WriteInt("a", "b", 2);
  EXPECT_EQ(Stored("b"), 2);
  EXPECT_EQ(fs::file_size(victim), 8U);

  fs::path lock = file;
  const int held = ::open((lock += ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_EQ(::flock(held, LOCK_EX), 0);
  const auto config = Open();
  const auto start = std::chrono::steady_clock::now();
  config->WriteInt("a", "b", 3);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
  EXPECT_EQ(config->ReadInt("a", "b", 0), 3);
  EXPECT_EQ(Stored("b"), 2);
  ::close(held);
  config->WriteInt("a", "c", 1);
  EXPECT_EQ(Stored("b"), 3);
  EXPECT_EQ(Leftovers(), 0) << "a dead holder's lock file goes too";
}

TEST_F(SettingsFilePosix, KilledWritersLeaveAWholeFile) {
  Put("[a]\nkeep = 1\n");
  int before = 0;
  for (int round = 0; round < 25; ++round) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      const auto config = Open();
      for (int i = config->ReadInt("a", "i", 0);; ++i) config->WriteInt("a", "i", i);
    }
    std::this_thread::sleep_for(std::chrono::microseconds(3000 + round * 731));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    const auto config = Open();
    EXPECT_EQ(config->ReadInt("a", "keep", 0), 1);
    const int now = config->ReadInt("a", "i", 0);
    EXPECT_GE(now, before);
    before = now;
    config->WriteInt("a", "round", round);
    EXPECT_EQ(Stored("round"), round);
    EXPECT_EQ(Leftovers(), 0);
  }
  EXPECT_GT(before, 0);
}

TEST_F(SettingsFilePosix, DefaultFileFollowsTheEnvironment) {
  const ScopedVariable named("KORINIMAGE_CONFIG", file.c_str());
  const ScopedVariable xdg("XDG_CONFIG_HOME", (folder / "xdg").c_str());
  const ScopedVariable home("HOME", folder.c_str());
  Config::SetDefaultConfig(nullptr);
  EXPECT_EQ(Config::DefaultConfig()->File(), file);
  EXPECT_EQ(Config::DefaultConfig(), Config::DefaultConfig());
  Put("[IO]\nFitsSecFrac = 2\n");
  EXPECT_EQ(CRegistry::Read("IO", "FitsSecFrac"), 0) << "read before";
  Config::SetDefaultConfig(nullptr);
  EXPECT_EQ(CRegistry::Read("IO", "FitsSecFrac"), 2);

  const ScopedVariable empty("KORINIMAGE_CONFIG", "");
  Config::SetDefaultConfig(nullptr);
  EXPECT_EQ(Config::DefaultConfig()->File(), folder / "xdg" / "korinimage" / "korinimage.ini");
  Config::DefaultConfig()->WriteInt("a", "b", 1);
  EXPECT_TRUE(fs::exists(folder / "xdg" / "korinimage" / "korinimage.ini"));
  {
    const ScopedVariable relative("XDG_CONFIG_HOME", "here");
    EXPECT_EQ(platform::UserConfigFolder(), folder / ".config");
    const ScopedVariable noHome("HOME", nullptr);
    const fs::path fromDatabase = platform::UserConfigFolder();
    EXPECT_TRUE(fromDatabase.empty() || fromDatabase.is_absolute());
  }
  Config::SetDefaultConfig(nullptr);
}

TEST_F(SettingsFilePosix, RelativeNamesStayWhereTheyWere) {
  const fs::path before = fs::current_path();
  fs::current_path(folder);
  const auto config = Config::OpenFile("relative.ini");
  fs::current_path(before);
  config->WriteInt("a", "b", 1);
  EXPECT_TRUE(fs::exists(folder / "relative.ini"));
}

}  // namespace
}  // namespace korin
