#include "platform/memory_figures.h"

#include <gtest/gtest.h>

#include "support/temporary_folder.h"
#include "vm/binary_units.h"

namespace korin::test {
namespace {

namespace fs = std::filesystem;
using platform::MemoryFigures;

// A tree with the files that the figures come from.
class MemoryFiguresTest : public ::testing::Test {
 protected:
  void Write(const std::string& file, const std::string& text) {
    fs::create_directories((m_root / file).parent_path());
    PutContents(m_root / file, text);
  }
  void WriteMachine() {
    Write("proc/meminfo",
          "MemTotal:       16777216 kB\nMemFree:  1 kB\nMemAvailable:    8388608 kB\n"
          "Buffers:          102400 kB\nCached:          2097152 kB\nShmem:           204800 kB\n"
          "Slab:             409600 kB\nSReclaimable:     307200 kB\nKernelStack:      10240 kB\n"
          "PageTables:        20480 kB\n");
  }

  const ScratchFolder m_folder;
  const fs::path& m_root = m_folder.Path();
};

TEST_F(MemoryFiguresTest, ComeFromTheKernelsTable) {
  WriteMachine();
  const MemoryFigures figures = platform::QueryMemoryUnder(m_root);
  EXPECT_EQ(figures.totalPhysical, 16 * kGiB);
  EXPECT_EQ(figures.availablePhysical, 8 * kGiB);
  EXPECT_EQ(figures.kernelTotal, 430 * kMiB);
  EXPECT_EQ(figures.systemCache, (2048 + 100 + 300 - 200) * kMiB);
  EXPECT_GT(figures.availableVirtual, kGiB);
}

TEST_F(MemoryFiguresTest, AreBoundByEveryGroupOnTheWayUp) {
  WriteMachine();
  Write("proc/self/cgroup", "0::/outer/inner\n");
  Write("proc/self/mountinfo", "30 1 0:5 / /sys/fs/cgroup rw - cgroup2 cgroup2 rw\n");
  Write("sys/fs/cgroup/outer/memory.max", "4294967296\n");
  Write("sys/fs/cgroup/outer/memory.current", "3221225472\n");
  Write("sys/fs/cgroup/outer/memory.stat", "anon 1\ninactive_file 1073741824\nactive_file 7\n");
  Write("sys/fs/cgroup/outer/inner/memory.max", "max\n");
  MemoryFigures figures = platform::QueryMemoryUnder(m_root);
  EXPECT_EQ(figures.totalPhysical, 4 * kGiB);
  EXPECT_EQ(figures.availablePhysical, 2 * kGiB);  // limit - used + cache that can go
  Write("sys/fs/cgroup/outer/inner/memory.max", "1073741824\n");
  Write("sys/fs/cgroup/outer/inner/memory.current", "2147483648\n");  // beyond its limit
  figures = platform::QueryMemoryUnder(m_root);
  EXPECT_EQ(figures.totalPhysical, kGiB);
  EXPECT_EQ(figures.availablePhysical, 0U);
}

TEST_F(MemoryFiguresTest, KnowTheOlderGroupsAndContainers) {
  WriteMachine();
  // The container sees its own group as the root of the mount.
  Write("proc/self/cgroup", "5:cpu:/x\n4:memory,hugetlb:/docker/abc/job\n0::/\n");
  Write(
      "proc/self/mountinfo",
      "1 1 0:1 /x /sys/fs/cgroup/cpu rw - cgroup cgroup rw,cpu\n"
      "2 1 0:2 /docker/abc /sys/fs/cgroup/memory rw shared:9 - cgroup cgroup rw,memory,hugetlb\n");
  Write("sys/fs/cgroup/memory/memory.limit_in_bytes", "9223372036854771712\n");  // none
  Write("sys/fs/cgroup/memory/job/memory.limit_in_bytes", "2147483648\n");
  Write("sys/fs/cgroup/memory/job/memory.usage_in_bytes", "1073741824\n");
  Write("sys/fs/cgroup/memory/job/memory.stat", "inactive_file 5\ntotal_inactive_file 1048576\n");
  const MemoryFigures figures = platform::QueryMemoryUnder(m_root);
  EXPECT_EQ(figures.totalPhysical, 2 * kGiB);
  EXPECT_EQ(figures.availablePhysical, kGiB + kMiB);
}

TEST_F(MemoryFiguresTest, FallBackWithoutTheTables) {
  const MemoryFigures figures = platform::QueryMemoryUnder(m_root);
  EXPECT_GT(figures.totalPhysical, kMiB);
  EXPECT_LE(figures.availablePhysical, figures.totalPhysical);
  Write("proc/meminfo", "MemTotal: rubbish\n\xff\xff: 3 kB\n");
  Write("proc/self/cgroup", ":::\n0:\n0::/../..\n");
  Write("proc/self/mountinfo", "1 1 0:1\n- cgroup2\n1 1 0:1 / /g rw - cgroup2 c rw\n");
  EXPECT_GT(platform::QueryMemoryUnder(m_root).totalPhysical, kMiB);
}

}  // namespace
}  // namespace korin::test
