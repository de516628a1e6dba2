#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <tuple>

#include "image/image_fixture.h"
#include "korinimage/exceptions.h"
#include "korinimage/progress_win.h"
#include "progress/test_window.h"
#include "support/recording_progress.h"

namespace korin::test {
namespace {

using Lifecycle = ImageTest;
const Shape kShape;

// Each flag of an image and how it is set.
struct Flag {
  bool (CImage::*get)() const;
  void (CImage::*set)(bool);
};
constexpr Flag kFlags[] = {
    {&CImage::IsSigned, &CImage::SetSigned},
    {&CImage::HasOwnLevel, &CImage::SetOwnLevel},
    {&CImage::IsSaveableFormat, &CImage::SetSaveableFormat},
    {&CImage::IsSaveableFile, &CImage::SetSaveableFile},
    {&CImage::IsOrgBayerImage, &CImage::SetOrgBayerImage},
    {&CImage::IsOrgHoneyCombImage, &CImage::SetOrgHoneyCombImage},
    {&CImage::IsOrgDevelopmentImage, &CImage::SetOrgDevelopmentImage},
    {&CImage::IsBayerImage, &CImage::SetBayerImage},
    {&CImage::IsHoneyCombImage, &CImage::SetHoneyCombImage},
    {&CImage::IsDevelopmentImage, &CImage::SetDevelopmentImage},
};

// Everything that an image says of itself, pixels and sampling left out.
auto DescriptionOf(const CImage& image) {
  std::vector<bool> flags;
  for (const Flag& flag : kFlags) flags.push_back((image.*flag.get)());
  return std::make_tuple(
      flags, image.GetBitsPixel(), image.GetDimension(), image.GetAxes(), image.GetBscale(),
      image.GetBzero(), image.GetLevelMin(), image.GetLevelMax(), image.GetLevelRange(),
      image.GetOrgFileName(), image.GetOrgFileFormat(), image.GetOrgBitsPixel(),
      image.GetOrgWidth(), image.GetOrgHeight(), image.GetOrgPlanes(), image.GetRawImageBits(),
      image.Header().GetCount() > 0 ? std::wstring(image.Header().GetAt(0)) : std::wstring());
}

CImage Described(const std::shared_ptr<CVmManager>& manager) {
  CImage image = MakeImage(manager, kShape, RandomPixels<std::uint16_t>(kShape), 2.0, -3.0);
  EXPECT_EQ(image.GetLevelMax(), std::vector<double>(3));
  image.SetDefaultLevel();
  image.SetOrgFileName(L"m13.fits");
  image.SetOrgFileFormat(L"FITS");
  image.SetOrgBitsPixel(static_cast<CImage::SourceType>(99));
  image.SetOrgWidth(5);
  image.SetOrgHeight(6);
  image.SetOrgPlanes(7);
  image.SetRawImageBits(14);
  image.Header().Add(L"OBJECT  = 'M13'");
  image.SetHistogramCullParam(8.0, 1000000);
  return image;
}

TEST_F(Lifecycle, DefaultsAndDimensionRules) {
  CImage image;
  EXPECT_EQ(image.GetBitsPixel(), 0);
  EXPECT_EQ(image.GetBytesPixel(), 0);
  EXPECT_TRUE(image.IsSigned());
  EXPECT_EQ(image.GetDimension(), -1);
  EXPECT_FALSE(image.IsColor());
  EXPECT_EQ(image.GetImageSize(), 0);
  EXPECT_EQ(image.GetBlockShape(), std::pair(std::int64_t{0}, std::int64_t{0}));
  EXPECT_EQ(image.GetRawImageBits(), 12);
  EXPECT_TRUE(image.IsEmpty() && image.IsOnMemory() && image.IsCcd());
  EXPECT_FALSE(image.AllocImage(kSilent));
  image.Header().SetCameraModel(L"EOS");
  EXPECT_FALSE(image.IsCcd());

  image.SetPlanes(0);
  EXPECT_EQ(image.GetDimension(), 2);
  const CImage none(MakeManager(4096, 8), CImage::DataTypeInt8, 5, 5, 0, 1, 0, false, kSilent);
  EXPECT_EQ(none.GetDimension(), 3);

  image.SetWidth(65536);
  image.SetHeight(65536);
  image.SetPlanes(1);
  image.SetBitsPixel(CImage::DataTypeDouble);
  EXPECT_EQ(image.GetPixelCount(), 0);  // wraps
  EXPECT_EQ(image.GetImageSize(), std::int64_t{1} << 35);
  image.SetBscale(0.0);
  EXPECT_TRUE(std::isinf(image.UnapplyBaseScaleOffset(1.0)));
}

TEST_F(Lifecycle, CopiesCarryPixelsAndDescription) {
  const auto manager = MakeManager(4096, 5);
  CImage source = Described(manager);
  const auto pixels = ReadPixels<std::uint16_t>(source);
  const auto expectCopy = [&](CImage& copy) {
    EXPECT_EQ(ReadPixels<std::uint16_t>(copy), pixels);
    EXPECT_EQ(DescriptionOf(copy), DescriptionOf(source));
  };
  const auto samplingOf = [](CImage& image) {
    image.SetWidth(8000);
    image.SetHeight(6000);
    const auto sampling = image.GetHistogramCull();
    image.SetWidth(kShape.width);
    image.SetHeight(kShape.height);
    return sampling;
  };
  CImage constructed(source);
  expectCopy(constructed);
  CImage assigned;
  assigned = source;
  expectCopy(assigned);
  // The sampling rule of a copy-constructed image is the user's; other copies carry it.
  EXPECT_NE(samplingOf(constructed), samplingOf(source));
  EXPECT_EQ(samplingOf(assigned), samplingOf(source));

  const auto clone = source.Clone(kSilent);
  expectCopy(*clone);
  EXPECT_NE(clone->GetHistogramCullXRef(), source.GetHistogramCullXRef());  // sequence goes on

  const auto shell = source.CloneWithoutImage(CImage::DataTypeFloat, kSilent);
  EXPECT_EQ(shell->GetBytesPixel(), 4);
  EXPECT_EQ(shell->GetLevelMin(), source.GetLevelMin());
  EXPECT_EQ(ReadPixels<float>(*shell), std::vector<float>(pixels.size()));
  for (CImage* image : {&source, &constructed}) image->EmptyImage();
  EXPECT_EQ(manager->GetAllocatedBlocks(), 3 * clone->GetBlockCount() + 2);
}

TEST_F(Lifecycle, EachAttributeIsItsOwnAndGoesWithEveryCopy) {
  const auto manager = MakeManager(4096, 5);
  CImage source = Described(manager);
  for (const Flag& one : kFlags) {
    for (const Flag& flag : kFlags) (source.*flag.set)(&flag == &one);
    for (const Flag& flag : kFlags) EXPECT_EQ((source.*flag.get)(), &flag == &one);
    const auto expected = DescriptionOf(source);
    CImage created;
    EXPECT_TRUE(created.Create(source, kSilent));
    EXPECT_EQ(DescriptionOf(created), expected);
    CImage moved(std::move(created));
    EXPECT_EQ(DescriptionOf(moved), expected);
    created = std::move(moved);
    EXPECT_EQ(DescriptionOf(created), expected);
    moved = created;
    EXPECT_EQ(DescriptionOf(moved), expected);
    EXPECT_EQ(DescriptionOf(CImage(moved)), expected);
  }
}

TEST_F(Lifecycle, EveryLongOperationReportsToAWindowToo) {
  using Type = CImage::DataType;
  using Level = CImage::ChangeBitsLevel;
  const auto manager = MakeManager(4096, 30);
  const CImage source = Described(manager);
  CImage image(source);
  TestWindow window;
  const wchar_t* const caption = L"caption";
  const std::function<void(HWND)> operations[] = {
      [&](HWND w) { CImage(manager, Type::DataTypeInt8, 9, 9, 1, 1, 0, false, w, caption); },
      [&](HWND w) { CImage(source, w, caption); },
      [&](HWND w) { image.AllocImage(manager, w, caption); },
      [&](HWND w) { image.AllocImage(w, caption); },
      [&](HWND w) { source.Clone(w, caption); },
      [&](HWND w) { image.Create(source, w, caption); },
      [&](HWND w) { source.CloneWithoutImage(w, caption); },
      [&](HWND w) { source.CloneWithoutImage(Type::DataTypeFloat, w, caption); },
      [&](HWND w) { image.CopyImage(source, w, caption); },
      [&](HWND w) { image.ChangeSize(w == nullptr ? 20 : 21, 20, w, caption); },
      [&](HWND w) { image.ChangePlanes(w == nullptr ? 1 : 2, w, caption); },
      [&](HWND w) { source.ScalingAppliedImage(w, caption); },
      [&](HWND w) {
        image.ChangeBits(&source, Type::DataTypeInt32, w != nullptr, Level::Raw, w, caption);
      },
      [&](HWND w) { image.ChangeBits(Type::DataTypeInt16, w != nullptr, Level::Raw, w, caption); },
  };
  for (std::size_t i = 0; i < std::size(operations); ++i) {
    window.log.clear();
    operations[i](nullptr);
    EXPECT_TRUE(window.log.empty()) << i;
    operations[i](window.handle);
    EXPECT_FALSE(window.log.empty()) << i;
    for (const Received& received : window.log) {
      EXPECT_EQ(received.message, kProgressMessage);
      if (received.wParam != kProgressInitialize) continue;
      EXPECT_EQ(received.lParam, reinterpret_cast<std::intptr_t>(caption));
    }
  }
}

TEST_F(Lifecycle, SelfOperationsKeepPixels) {
  const auto manager = MakeManager(4096, 4);
  CImage image = Described(manager);
  const auto pixels = ReadPixels<std::uint16_t>(image);
  CImage& self = image;
  const auto permutation = image.GetHistogramCullXRef();
  image = self;
  EXPECT_NE(image.GetHistogramCullXRef(), permutation);
  image = std::move(self);
  image.Swap(self);
  EXPECT_TRUE(image.CopyImage(self, kSilent));
  EXPECT_TRUE(image.Create(self, kSilent));
  EXPECT_EQ(ReadPixels<std::uint16_t>(image), pixels);
  EXPECT_EQ(image.Header().GetCount(), 1);
  EXPECT_EQ(image.GetOrgFileName(), L"m13.fits");
  // A size set behind the store is what the new store gets.
  image.SetWidth(50);
  EXPECT_TRUE(image.Create(self, kSilent));
  EXPECT_EQ(image.Store()->GetWidth(), 50);
}

TEST_F(Lifecycle, MovedFromImageIsAnEmptyOne) {
  const auto manager = MakeManager(4096, 8);
  CImage source = Described(manager);
  CImage taken(std::move(source));
  EXPECT_TRUE(source.IsEmpty() && source.IsCcd());
  EXPECT_EQ(source.Header().GetCount(), 0);
  CImage again(std::move(taken));
  taken.Empty();
  taken = again;
  EXPECT_EQ(taken.Header().GetCount(), 1);
  source.Swap(taken);
  EXPECT_EQ(source.GetLevelMin(), again.GetLevelMin());
  EXPECT_TRUE(taken.IsEmpty());
}

TEST_F(Lifecycle, EmptyingAndFailures) {
  auto manager = MakeManager(4096, 4, 8);
  CImage image = Described(manager);
  const auto pixels = ReadPixels<std::uint16_t>(image);
  image.SetWidth(4000);  // does not fit memory and disk
  EXPECT_FALSE(image.AllocImage(kSilent));
  image.SetWidth(kShape.width);
  EXPECT_EQ(ReadPixels<std::uint16_t>(image), pixels);
  EXPECT_THROW(CImage(manager, CImage::DataTypeDouble, 400, 400, 1, 1, 0, false, kSilent),
               CVmMemoryAllocationError);
  EXPECT_THROW(CImage(nullptr, CImage::DataTypeDouble, 4, 4, 1, 1, 0, false, kSilent),
               CVmMemoryAllocationError);

  // A copy that does not fit leaves an empty image, and nothing behind.
  CImage target(manager, CImage::DataTypeInt8, 8, 8, 1, 1, 0, false, kSilent);
  const CImage second(image);
  const CImage third(image);
  const auto before = manager->GetAllocatedBlocks();
  EXPECT_THROW(target = image, CVmMemoryAllocationError);
  EXPECT_TRUE(target.IsEmpty());
  EXPECT_EQ(manager->GetAllocatedBlocks(), before - 1);
  EXPECT_EQ(ReadPixels<std::uint16_t>(image), pixels);

  image.Empty();
  EXPECT_EQ(image.GetWidth(), kShape.width);
  EXPECT_TRUE(image.IsEmpty() && image.GetLevelMin().empty());
  EXPECT_EQ(image.Header().GetCount(), 0);
  CImage created;
  EXPECT_FALSE(created.Create(image, kSilent));
  EXPECT_EQ(created.GetWidth(), kShape.width);
  testing::internal::CaptureStderr();
  EXPECT_EQ(image.CloneWithoutImage(CImage::DataTypeFloat, kSilent), nullptr);
  EXPECT_EQ(second.CloneWithoutImage(CImage::DataTypeDouble, kSilent), nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "m_pVmImage is nullptr\nm_VmHandle is nullptr\nstd::bad_alloc occurred.\n");

  // Width 0 is an image, without a sample table.
  created.SetWidth(0);
  EXPECT_TRUE(created.AllocImage(manager, kSilent));
  EXPECT_FALSE(created.IsHistogramCullParam());
  EXPECT_EQ(created.GetAverageRaw(0), 0.0);
  EXPECT_TRUE(
      created.ChangeBits(CImage::DataTypeFloat, false, CImage::ChangeBitsLevel::Raw, kSilent));

  // An image that outlives its manager says so and destroys quietly.
  manager.reset();
  for (CImage* orphan : {&target, &created, &image}) {
    EXPECT_THROW((void)orphan->GetMinMaxRaw(0), CVmManagerHandleDeletedError);
    EXPECT_THROW((void)orphan->GetPixel(0, 0, 0), CVmManagerHandleDeletedError);
    EXPECT_THROW((void)orphan->Fill(0, 1.0), CVmManagerHandleDeletedError);
  }
  EXPECT_THROW((void)third.CloneWithoutImage(kSilent), CVmManagerHandleDeletedError);
  const auto described = DescriptionOf(created);
  EXPECT_THROW((void)created.Create(third, kSilent), CVmManagerHandleDeletedError);
  EXPECT_EQ(DescriptionOf(created), described);
}

TEST_F(Lifecycle, ThrowingSinkLeavesEverythingAsItWas) {
  const auto manager = MakeManager(4096, 3);
  CImage image = Described(manager);
  const auto pixels = ReadPixels<std::uint16_t>(image);
  const auto blocks = manager->GetAllocatedBlocks();
  const auto sink = std::make_shared<RecordingProgress>();
  int threw = 0;
  for (int call = 0; call < 40; ++call) {
    sink->calls.clear();
    sink->throwAt = call;
    try {
      const CImage copy(image, sink);
    } catch (const SinkError&) {
      ++threw;
    }
    EXPECT_LE(sink->Count("finalize"), 1);
    CImage other(manager, CImage::DataTypeInt8, 8, 8, 1, 1, 0, false, kSilent);
    const auto described = DescriptionOf(other);
    sink->calls.clear();
    try {
      other.Create(image, sink);
    } catch (const SinkError&) {
      ++threw;
      EXPECT_EQ(DescriptionOf(other), described);
      EXPECT_EQ(other.GetAverageRaw(0), 0.0);
    }
    other.EmptyImage();
    EXPECT_EQ(manager->GetAllocatedBlocks(), blocks);
  }
  EXPECT_GT(threw, 6);
  EXPECT_EQ(ReadPixels<std::uint16_t>(image), pixels);
}

}  // namespace
}  // namespace korin::test
