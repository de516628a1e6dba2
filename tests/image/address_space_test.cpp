// A budget beyond the memory that the system grants: images page as if the budget
// ended there, and what no address space can hold is refused at once.
#include "image/image_fixture.h"
#include "korinimage/exceptions.h"
#include "vm/vm_test_support.h"

namespace korin::test {
namespace {

constexpr std::int64_t kMiB = 1 << 20;
constexpr bool kSmallSpace = sizeof(void*) == 4;

// A system that grants so many bytes at a time, to all blocks together.
class GrantedMemory : public CVmMemoryInterface {
 public:
  GrantedMemory(std::int64_t& left, std::int64_t size)
      : m_left(left), m_size(size <= left ? size : 0), m_memory(Alloc(m_size)) {
    m_left -= m_size;
  }
  ~GrantedMemory() override { m_left += m_size; }
  void* GetAddress() override { return m_memory->GetAddress(); }
  const void* GetAddress() const override { return m_memory->GetAddress(); }
  bool IsNull() const override { return m_memory->IsNull(); }
  bool IsValid() const override { return m_memory->IsValid(); }

 private:
  std::int64_t& m_left;
  std::int64_t m_size;
  std::unique_ptr<CVmMemoryInterface> m_memory;
};

class AddressSpaceTest : public VmTest {
 protected:
  void SetUp() override {
    if (kPoison) GTEST_SKIP() << "blocks that are let go move to other memory";
  }
  static CImage Make(const std::shared_ptr<CVmManager>& manager, const Shape& shape) {
    return CImage(manager, CImage::DataTypeInt8, shape.width, shape.height, shape.planes, 1.0, 0.0,
                  false, CImage::ProgressPtr());
  }
};

TEST_F(AddressSpaceTest, ImagesPageWhereTheSystemGrantsLessThanTheBudget) {
  const Shape shape{100, 300, 3};
  for (const Policy policy : {Policy::Blocks, Policy::Planes, Policy::Image}) {
    for (const std::int64_t disk : {0, 500}) {
      SCOPED_TRACE(std::to_string(static_cast<int>(policy)) + " " + std::to_string(disk));
      std::int64_t left = 250000;  // of a budget of 4 MiB
      vm::ManagerSeams seams;
      seams.memory = [&left](std::int64_t size) {
        return std::make_unique<GrantedMemory>(left, size);
      };
      const auto manager = CreateManagerForTest(kBlock, 1000, disk, seams);
      manager->SetAllocationPolicy(policy);
      std::vector<CImage> images;
      std::vector<std::vector<std::uint8_t>> pixels;
      const auto fill = [&] {
        for (unsigned seed = 0; seed < 6; ++seed) {
          pixels.push_back(RandomPixels<std::uint8_t>(shape, seed));
          images.push_back(MakeImage(manager, shape, pixels.back()));
        }
      };
      if (disk == 0) {
        EXPECT_THROW(fill(), CVmMemoryAllocationError);
      } else {
        fill();
        EXPECT_GT(manager->GetDiskUsedBytes(), 0);
      }
      EXPECT_GE(images.size(), 2U);
      for (std::size_t i = 0; i < images.size(); ++i) {
        EXPECT_TRUE(ReadPixels<std::uint8_t>(images[i]) == pixels[i]) << i;
      }
      EXPECT_EQ(manager->Inspect().fault, "");
    }
  }
}

// Nothing may go to make the room: the error says what was asked for.
TEST_F(AddressSpaceTest, ABlockThatTheSystemNeverGrantsIsRefused) {
  std::int64_t left = 50000;
  vm::ManagerSeams seams;
  seams.memory = [&left](std::int64_t size) { return std::make_unique<GrantedMemory>(left, size); };
  const auto manager = CreateManagerForTest(kBlock, 1000, 500, seams);
  manager->SetAllocationPolicy(Policy::Planes);
  CImage image = Make(manager, {100, 100, 1});
  ASSERT_TRUE(image.Fill(0, 9.0));
  try {
    Make(manager, {300, 300, 1});
    ADD_FAILURE() << "more than the system has";
  } catch (const CVmMemoryAllocationError& error) {
    EXPECT_EQ(error.Figures().requested, 90000) << error.what();
    EXPECT_NE(std::string(error.what()).find("refused"), std::string::npos) << error.what();
  }
  EXPECT_FALSE(image.ChangeSize(300, 300, CImage::ProgressPtr()));
  EXPECT_EQ(image.GetMinMaxRaw(0), std::tuple(9.0, 9.0));
  EXPECT_EQ(manager->GetAllocatedBlocks(), 3);
}

// The process's own address space.
TEST_F(AddressSpaceTest, SizesBeyondTwoGibibytesAreRefusedInASmallSpace) {
  if (!kSmallSpace) GTEST_SKIP() << "addresses of 64 bits have room for them";
  const auto manager = CreateManagerForTest(1 << 20, 1 << 20, 1 << 20);
  for (const Policy policy : {Policy::Planes, Policy::Image}) {
    manager->SetAllocationPolicy(policy);
    CImage image = Make(manager, {1000, 1000, 1});
    ASSERT_TRUE(image.Fill(0, 9.0));
    for (const Shape& shape : {Shape{50000, 50000, 1}, Shape{70000, 70000, 1}}) {
      try {
        Make(manager, shape);
        ADD_FAILURE() << "no address space of 32 bits has room for " << shape.Count();
      } catch (const CVmMemoryAllocationError& error) {
        EXPECT_EQ(error.Figures().requested, shape.Count()) << error.what();
        EXPECT_NE(std::string(error.what()).find(std::to_string(shape.Count())), std::string::npos);
      }
      EXPECT_FALSE(image.ChangeSize(shape.width, shape.height, CImage::ProgressPtr()));
      EXPECT_EQ(image.GetWidth(), 1000);
      EXPECT_EQ(image.GetMinMaxRaw(0), std::tuple(9.0, 9.0));
    }
    EXPECT_EQ(manager->GetAllocatedBlocks(), 1);
    EXPECT_EQ(manager->Inspect().fault, "");
  }
}

TEST_F(AddressSpaceTest, ABudgetBeyondASmallSpacePages) {
  if (!kSmallSpace) GTEST_SKIP() << "no machine has the memory to fill addresses of 64 bits";
  constexpr int kWidth = 262144;  // a block each line
  constexpr int kLines = 1024;
  const auto manager = CreateManagerForTest(kWidth, 8 * 4096, 8 * 4096);
  // Lines with a mark; the others are zeros that need no memory of the machine.
  const auto mark = [&](CImage& image, int y, bool write) {
    BYTE* row = image.Store()->GetImageAdr(0, y, 0, write, write, nullptr);
    if (write) row[y] = static_cast<BYTE>(y / 64 + 1);
    return row[y] == y / 64 + 1;
  };
  std::vector<CImage> images;
  for (int beyond = 0; beyond < 3 && images.size() < 24;) {
    images.push_back(Make(manager, {kWidth, kLines, 1}));
    if (!images.back().Store()->IsOnMemory()) ++beyond;
    for (int y = 0; y < kLines; y += 64) ASSERT_TRUE(mark(images.back(), y, true));
    images.back().UnlockAll();
  }
  EXPECT_LT(images.size(), 24U) << "6 GiB in an address space of 4";
  EXPECT_LT(manager->GetMemoryUsedBlocks(), 4 * 4096);
  EXPECT_GT(manager->GetDiskUsedBytes(), 256 * kMiB);
  for (CImage& image : images) {
    for (int y = 0; y < kLines; y += 64) ASSERT_TRUE(mark(image, y, false)) << y;
  }
  // Room is left for threads and their buffers, and for blocks of another size.
  manager->SetAllocationPolicy(Policy::Planes);
  CImage plane = Make(manager, {4096, 12288, 1});
  ASSERT_TRUE(plane.Fill(0, 7.0));
  EXPECT_EQ(plane.GetMinMaxRaw(0), std::tuple(7.0, 7.0));
  EXPECT_EQ(plane.HistogramRaw(0, 0.0, 16.0, 16)[7], 4096 * 12288);
  EXPECT_EQ(manager->Inspect().fault, "");
}

}  // namespace
}  // namespace korin::test
