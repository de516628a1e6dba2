// Images and files on a real disk that is full, and what files look like to others
// until they are whole.
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <fstream>

#include "image/image_fixture.h"
#include "korinimage/exceptions.h"
#include "korinimage/io/io.h"
#include "output_file.h"
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
  rlimit former{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &former), 0);
  rlimit small = former;
  small.rlim_cur = 100000;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  {
    OutputFile output(m_folder.Path() / "large");
    const std::vector<char> bytes(70000);
    output.Write(bytes.data(), bytes.size());
    EXPECT_THROW(output.Write(bytes.data(), bytes.size()), FileError);
  }
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &former), 0);
  EXPECT_TRUE(Names(m_folder.Path()).empty());
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
