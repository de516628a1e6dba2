// Images and files on a real disk that is full, and what files look like to others
// until they are whole.
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <random>

#include "image/image_fixture.h"
#include "korinimage/exceptions.h"
#include "korinimage/io/io.h"
#include "output_file.h"
#include "platform/swap_file.h"
#include "support/recording_progress.h"
#include "support/temporary_folder.h"
#include "vm/vm_test_support.h"

namespace korin::test {
namespace {

namespace fs = std::filesystem;

mode_t Mode(const fs::path& file) {
  struct stat info {};
  EXPECT_EQ(lstat(file.c_str(), &info), 0) << file;
  return info.st_mode & 07777;
}

class FullDiskTest : public VmTest {
 protected:
  const OwnTemporaryFolder m_folder;
};

TEST_F(FullDiskTest, ImagesAndFilesGoOnWhenSomeIsFreed) {
  const fs::path disk = m_folder.Path() / "disk";
  fs::create_directory(disk);
  if (mount("none", disk.c_str(), "tmpfs", 0, "size=512k") != 0) {
    GTEST_SKIP() << "mounting a small file system is not allowed here";
  }
  struct Unmount {
    const fs::path& disk;
    ~Unmount() { umount2(disk.c_str(), MNT_DETACH); }
  } const unmount{disk};
  vm::ManagerSeams seams;
  seams.swap = [&](const fs::path&) { return CVmVirtualMemory::Create(disk); };
  // The limit promises more than the 128 blocks of the disk.
  const auto manager = CreateManagerForTest(kBlock, 6, 1000, seams);
  const Shape shape{200, 50, 2};  // 40000 bytes, 10 blocks
  const auto pixels = RandomPixels<std::int16_t>(shape);
  std::vector<CImage> images;
  std::string problem;
  while (problem.empty() && images.size() < 100) {
    try {
      images.push_back(MakeImage(manager, shape, pixels));
    } catch (const CVmMemoryAllocationError& error) {
      problem = error.what();
      EXPECT_GT(error.Figures().requested, 0);
    }
  }
  EXPECT_GT(images.size(), 5U);
  EXPECT_NE(problem.find("No space left"), std::string::npos) << problem;
  // Nothing is damaged, and what needs no new place still works.
  for (int round = 0; round < 2; ++round) {
    for (CImage& image : images) ASSERT_TRUE(ReadPixels<std::int16_t>(image) == pixels);
    EXPECT_EQ(images.front().ScalingAppliedImage(), nullptr);
    EXPECT_FALSE(images.front().ChangeSize(300, 300, kSilent));
    EXPECT_TRUE(images.back().Fill(-1, 9.0));
    EXPECT_EQ(images.back().GetMinMaxRaw(-1), std::tuple(9.0, 9.0));
    WritePixels(images.back(), pixels);
    ASSERT_EQ(manager->Inspect().fault, "");
  }
  // A file does not fit either: the old one stays, and nothing half made.
  std::ofstream(disk / "a.fits") << "";
  try {
    SaveFits(images.front(), disk / "a.fits");
    ADD_FAILURE() << "the disk is full";
  } catch (const FileError& error) {
    EXPECT_NE(error.Problem().find("No space left"), std::string::npos) << error.what();
    EXPECT_FALSE(error.Remedy().empty());
  }
  EXPECT_EQ(Names(disk).size(), 2U);
  EXPECT_EQ(fs::file_size(disk / "a.fits"), 0U);

  // An image gone is room for another, as often as wanted.
  for (int round = 0; round < 5; ++round) {
    images.erase(images.begin());
    images.push_back(MakeImage(manager, shape, pixels));
  }
  for (CImage& image : images) ASSERT_TRUE(ReadPixels<std::int16_t>(image) == pixels);
  // A larger disk is room for the file.
  ASSERT_EQ(mount("none", disk.c_str(), "tmpfs", MS_REMOUNT, "size=1m"), 0);
  SaveFits(images.front(), disk / "a.fits");
  const auto read = LoadFits(manager, disk / "a.fits");
  EXPECT_TRUE(ReadPixels<std::int16_t>(*read) == pixels);
}

class NewFilesTest : public FullDiskTest {};

TEST_F(NewFilesTest, ArePrivateUntilTheyAreWhole) {
  const auto former = umask(022);
  const fs::path file = m_folder.Path() / "a";
  {
    OutputFile output(file);
    output.Write("secret", 6);
    const auto names = Names(m_folder.Path());
    ASSERT_EQ(names.size(), 1U);
    EXPECT_EQ(Mode(m_folder.Path() / *names.begin()), 0600U);
    output.Commit();
  }
  EXPECT_EQ(Names(m_folder.Path()), std::set<std::string>{"a"});
  EXPECT_EQ(Mode(file), 0644U);
  // A file that is replaced keeps its mode, a stricter one too.
  for (const mode_t mode : {0600U, 0640U, 0666U}) {
    ASSERT_EQ(chmod(file.c_str(), mode), 0);
    OutputFile output(file);
    output.Write("more", 4);
    output.Commit();
    EXPECT_EQ(Mode(file), mode);
  }
  umask(former);

  // A name that something has is not taken, whatever it is.
  const fs::path taken = m_folder.Path() / "taken";
  const fs::path victim = m_folder.Path() / "victim";
  std::ofstream(victim) << "untouched";
  const std::function<void()> obstacles[] = {
      [&] { fs::create_symlink(victim, taken); },
      [&] { fs::create_symlink(m_folder.Path() / "nothing", taken); },
      [&] { EXPECT_EQ(mkfifo(taken.c_str(), 0600), 0); },
      [&] { fs::create_directory(taken); },
      [&] { fs::create_hard_link(victim, taken); },
  };
  for (const auto& obstacle : obstacles) {
    obstacle();
    platform::NewFile made;
    EXPECT_FALSE(made.Create(taken));
    EXPECT_EQ(made.Error(), std::errc::file_exists);
    EXPECT_TRUE(fs::exists(fs::symlink_status(taken)));
    fs::remove(taken);
  }
  EXPECT_EQ(fs::file_size(victim), 9U);
  EXPECT_FALSE(fs::exists(m_folder.Path() / "nothing"));
}

// Writing past the process's own limit would end it.
TEST_F(NewFilesTest, TheFileSizeLimitOfTheProcessIsAnError) {
  platform::SwapFile swap;
  ASSERT_TRUE(swap.Create(m_folder.Path()) && swap.SetSize(150000));
  const std::vector<char> bytes(70000);
  rlimit former{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &former), 0);
  rlimit small = former;
  small.rlim_cur = 100000;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  {
    OutputFile output(m_folder.Path() / "large");
    output.Write(bytes.data(), bytes.size());
    EXPECT_THROW(output.Write(bytes.data(), bytes.size()), FileError);
  }
  // It may be lowered when the swap file is larger already.
  EXPECT_FALSE(swap.SetSize(200000));
  EXPECT_EQ(swap.WriteAt(70000, bytes.data(), bytes.size()), 0U);
  EXPECT_EQ(swap.WriteAt(0, bytes.data(), bytes.size()), bytes.size());
  swap.Close();
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &former), 0);
  EXPECT_TRUE(Names(m_folder.Path()).empty());
}

// What killed writers leave goes; nothing else does, whatever its name and whoever
// writes or sweeps meanwhile.
TEST_F(NewFilesTest, WhatKilledWritersLeaveGoes) {
  const fs::path folder = m_folder.Path();
  for (const char* name : {".korin-.tmp", ".korin-1.tmp.fits", ".korin-x1.tmp", "korin-1.tmp"}) {
    PutContents(folder / name, std::string("not ours"));
  }
  fs::create_directory(folder / ".korin-1.tmp");
  fs::create_symlink(folder / "korin-1.tmp", folder / ".korin-2.tmp");
  ASSERT_EQ(mkfifo((folder / ".korin-3.tmp").c_str(), 0600), 0);
  auto expected = Names(folder);
  expected.insert({"slow", "killed", "whole"});

  const std::string bytes(3000, 'k');
  const auto write = [&](const char* name) {
    OutputFile output(folder / name);
    output.Write(bytes.data(), bytes.size());
    output.Commit();
  };
  write("killed");
  OutputFile slow(folder / "slow");
  slow.Write(bytes.data(), bytes.size());
  std::mt19937 random(1);
  for (int round = 0; round < 100; ++round) {
    const pid_t child = fork();
    while (child == 0) write("killed");
    usleep(static_cast<useconds_t>(random() % 3000));
    write("whole");
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    ASSERT_EQ(Contents(folder / "killed"), bytes);
  }
  slow.Commit();
  write("whole");
  EXPECT_EQ(Names(folder), expected);
}

// A file that loses its end while it is read.
TEST_F(NewFilesTest, AFileThatShrinksWhileItIsReadIsAnError) {
  const fs::path file = m_folder.Path() / "shrinks.fits";
  const auto manager = CreateManagerForTest(kBlock, 6, 1000);
  const Shape shape{200, 400, 1};
  {
    CImage image = MakeImage(manager, shape, RandomPixels<std::int16_t>(shape));
    SaveFits(image, file);
  }
  struct Cutting : RecordingProgress {
    void update(int percent) override {
      if (percent > 40) fs::resize_file(target, 60000);
    }
    fs::path target;
  };
  const auto sink = std::make_shared<Cutting>();
  sink->target = file;
  EXPECT_THROW(LoadFits(manager, file, {}, sink), FileError);
  EXPECT_EQ(manager->GetAllocatedBlocks(), 0);
}

}  // namespace
}  // namespace korin::test
