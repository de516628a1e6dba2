// Where bytes live: regions of memory and the swap file.
#include <cstring>
#include <vector>

#include "platform/memory_pages.h"
#include "platform/text.h"
#include "vm/swap_backend.h"
#include "vm/vm_test_support.h"

namespace korin::test {
namespace {

using platform::Call;
using platform::Fault;
using vm::RegionCache;

class BackendTest : public VmTest {};

TEST_F(BackendTest, RegionsAreAlignedDistinctAndOfTheirSize) {
  const std::int64_t sizes[] = {1, 17, 1000, 4096, 65535, 65536, 262144, 300000, 40 << 20};
  std::vector<std::unique_ptr<CVmMemoryInterface>> regions;
  for (int round = 0; round < 3; ++round) {
    for (const std::int64_t size : sizes) {
      auto region = CVmMemoryInterface::Alloc(size);
      ASSERT_TRUE(region->IsValid() && !region->IsNull());
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(region->GetAddress()) % 16, 0U);
      std::memset(region->GetAddress(), static_cast<int>(regions.size()) + 1,
                  static_cast<std::size_t>(size));
      regions.push_back(std::move(region));
    }
  }
  for (std::size_t i = 0; i < regions.size(); ++i) {
    const auto size = static_cast<std::size_t>(sizes[i % std::size(sizes)]);
    const std::vector<char> expected(size, static_cast<char>(i + 1));
    EXPECT_EQ(std::memcmp(regions[i]->GetAddress(), expected.data(), size), 0) << i;
  }
  for (const std::int64_t size : {std::int64_t{0}, std::int64_t{-1}, INT64_MAX, INT64_MAX - 4096}) {
    const auto region = CVmMemoryInterface::Alloc(size);
    ASSERT_NE(region, nullptr);
    EXPECT_TRUE(region->IsNull() && !region->IsValid()) << size;
  }
}

TEST_F(BackendTest, CopiesOfARegionOwnNothing) {
  CVmWin32Memory region(4096);
  void* address = region.GetAddress();
  const CVmWin32Memory copy(region);
  EXPECT_TRUE(copy.IsNull());
  CVmWin32Memory other(4096);
  void* others = other.GetAddress();
  other = region;
  EXPECT_EQ(other.GetAddress(), others);
  EXPECT_EQ(region.GetAddress(), address);
}

TEST_F(BackendTest, FreedRegionsAreUsedAgainAndKeptWithinABound) {
  RegionCache cache;
  const auto taken = cache.Take(262144);
  EXPECT_TRUE(taken.zeroed);
  std::memset(taken.address, 7, 262144);
  cache.Give(taken.address);
  const auto again = cache.Take(262140);
  EXPECT_EQ(again.address, taken.address);
  EXPECT_FALSE(again.zeroed);
  cache.Give(again.address);

  std::vector<void*> all;
  for (int i = 0; i < 2000; ++i) all.push_back(cache.Take(262144).address);
  const auto full = cache.GetFigures();
  EXPECT_EQ(full.inUse, 2000 * 262144);
  for (void* region : all) cache.Give(region);
  EXPECT_EQ(cache.GetFigures().inUse, 0);
  EXPECT_LE(cache.GetFigures().warmFree, 256 << 20);
  EXPECT_LT(cache.GetFigures().mapped, full.mapped);
  // What lost its pages reads as zeros and says so.
  std::int64_t zeroed = 0;
  std::vector<void*> second;
  for (int i = 0; i < 2000; ++i) {
    const auto region = cache.Take(262144);
    second.push_back(region.address);
    if (!region.zeroed) continue;
    ++zeroed;
    const auto* bytes = static_cast<const char*>(region.address);
    ASSERT_TRUE(bytes[0] == 0 && std::memcmp(bytes, bytes + 1, 262143) == 0);
  }
  EXPECT_GT(zeroed, 0);

  // Warm memory of one size gives way to memory in use of another.
  for (void* region : second) cache.Give(region);
  const std::int64_t warm = cache.GetFigures().warmFree;
  std::vector<void*> large;
  for (int i = 0; i < 12; ++i) large.push_back(cache.Take(40 << 20).address);
  EXPECT_LT(cache.GetFigures().warmFree, warm);
  for (void* region : large) cache.Give(region);
}

TEST_F(BackendTest, RegionsSurviveASystemThatRefuses) {
  {
    RegionCache cache;
    // No whole chunk: a single region still comes.
    FaultAt fault(1, Fault::kNoMemory, false, {Call::kMapMemory});
    const auto region = cache.Take(262144);
    ASSERT_NE(region.address, nullptr);
    EXPECT_EQ(cache.GetFigures().mapped, 262144);
    cache.Give(region.address);
  }
  RegionCache cache;
  {
    FaultAt fault(1, Fault::kNoMemory, true, {Call::kMapMemory});
    EXPECT_EQ(cache.Take(262144).address, nullptr);
    EXPECT_FALSE(CVmMemoryInterface::Alloc(80 << 20)->IsValid());
  }
  // Memory that cannot be unmapped is kept and used again, not lost.
  std::vector<void*> regions;
  for (int i = 0; i < 12; ++i) regions.push_back(cache.Take(40 << 20).address);
  const std::int64_t mapped = cache.GetFigures().mapped;
  {
    FaultAt fault(1, Fault::kNoMemory, true, {Call::kUnmapMemory});
    for (void* region : regions) cache.Give(region);
    EXPECT_EQ(cache.GetFigures().mapped, mapped);
  }
  for (void*& region : regions) region = cache.Take(40 << 20).address;
  EXPECT_EQ(cache.GetFigures().mapped, mapped);
  for (void* region : regions) cache.Give(region);
}

TEST_F(BackendTest, SwapFileReadsWhatWasWritten) {
  const auto folder = std::filesystem::temp_directory_path();
  const auto file = CVmVirtualMemory::Create(folder);
  ASSERT_TRUE(file->IsOpen());
  const auto path = platform::WideToPath(file->GetPath());
  EXPECT_TRUE(std::filesystem::exists(path));
  EXPECT_TRUE(path == folder / path.filename());

  ASSERT_TRUE(file->Truncate(3 << 20));
  EXPECT_EQ(std::filesystem::file_size(path), 3U << 20);
  std::vector<char> out(1 << 20), in(1 << 20);
  for (std::size_t i = 0; i < out.size(); ++i) out[i] = static_cast<char>(i * 7 + i / 251);
  ASSERT_TRUE(file->Seek(1000));
  ASSERT_TRUE(file->Write(out.data(), 1000));
  ASSERT_TRUE(file->Write(out.data() + 1000, (1 << 20) - 1000));  // goes on where it was
  ASSERT_TRUE(file->Seek(1000));
  ASSERT_TRUE(file->Read(in.data(), 1 << 20));
  EXPECT_EQ(in, out);

  EXPECT_FALSE(file->Seek(-1));
  EXPECT_FALSE(file->Truncate(-1));
  EXPECT_FALSE(file->Read(in.data(), -5));
  // Past the end: what there is, and false.
  ASSERT_TRUE(file->Seek((3 << 20) - 10));
  EXPECT_FALSE(file->Read(in.data(), 11));
  // Only the low 32 bits of a size count, and then it is refused.
  ASSERT_TRUE(file->Seek(1000));
  in.assign(in.size(), 0);
  EXPECT_FALSE(file->Read(in.data(), (std::int64_t{1} << 32) + 16));
  EXPECT_TRUE(std::equal(out.begin(), out.begin() + 16, in.begin()));
  EXPECT_EQ(in[16], 0);
  EXPECT_FALSE(file->Write(out.data(), std::int64_t{1} << 32));

  const CVmWin32VirtualMemory copy(static_cast<const CVmWin32VirtualMemory&>(*file));
  EXPECT_FALSE(copy.IsOpen());
  EXPECT_FALSE(CVmVirtualMemory::Create(folder / "none")->IsOpen());
}

TEST_F(BackendTest, SwapFileCarriesOnAfterInterruptionsAndReportsTheRest) {
  const auto file = CVmVirtualMemory::Create(std::filesystem::temp_directory_path());
  std::vector<char> out(10000, 'x'), in(10000);
  for (const Fault fault : {Fault::kInterrupted, Fault::kShort}) {
    FaultAt at(1, fault, false, {Call::kReadFile, Call::kWriteFile, Call::kExtendFile});
    EXPECT_TRUE(file->Truncate(20000));
    EXPECT_TRUE(file->Seek(0) && file->Write(out.data(), 10000));
  }
  {
    FaultAt at(1, Fault::kShort, false, {Call::kReadFile});
    EXPECT_TRUE(file->Seek(0) && file->Read(in.data(), 10000));
    EXPECT_EQ(in, out);
  }
  for (const Fault fault : {Fault::kIoError, Fault::kNoSpace}) {
    FaultAt at(1, fault, true, {Call::kReadFile, Call::kWriteFile, Call::kExtendFile});
    EXPECT_FALSE(file->Truncate(30000));
    EXPECT_FALSE(file->Write(out.data(), 10000));
    EXPECT_FALSE(file->Read(in.data(), 10000));
    EXPECT_NE(file->GetError().find("~QV"), std::string::npos);
  }
  EXPECT_EQ(std::filesystem::file_size(platform::WideToPath(file->GetPath())), 20000U);
}

}  // namespace
}  // namespace korin::test
