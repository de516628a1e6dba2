// Every operation on images of several blocks with the n-th call to the system, or
// the n-th allocation, failing, for each n until the operation passes. Whatever
// fails: the answer is a documented one, the manager's figures are exact, all other
// images keep their pixels, no file is left half made, and the same operation works
// as soon as nothing fails any more.
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <set>

#include "exchange/dib_fixture.h"
#include "exchange/pixel_exchange.h"
#include "failing_heap.h"
#include "io/tile_files.h"
#include "korinimage/config.h"
#include "korinimage/exceptions.h"
#include "korinimage/io/io.h"
#include "korinimage/shared_mem.h"
#include "open_files.h"
#include "platform/exchange_names.h"
#include "platform/shared_mapping.h"
#include "support/system.h"
#include "support/temporary_folder.h"
#include "vm/vm_test_support.h"

namespace korin::test {
namespace {

namespace fs = std::filesystem;
using platform::Call;
using platform::Fault;

constexpr std::initializer_list<Call> kCalls = {
    Call::kMapMemory, Call::kUnmapMemory, Call::kOpenFile,   Call::kReadFile,
    Call::kWriteFile, Call::kExtendFile,  Call::kLockFile,   Call::kSyncFile,
    Call::kCloseFile, Call::kRenameFile,  Call::kRemoveFile, Call::kMapShared};

using Sample = std::int16_t;
constexpr Shape kShape{64, 40, 3};  // 15 blocks
constexpr Sample kFilled = 777;

// What an image is, in few bytes: its type, shape and scaling and a sum of its pixels.
std::string Digest(CImage& image) {
  if (image.Store() == nullptr) return "empty";
  std::uint64_t sum = 14695981039346656037ULL;
  std::uint64_t any = 0;
  for (std::int64_t b = 0; b < image.Store()->GetBlockCount(); ++b) {
    const BlockGuard guard = image.Store()->PinBlock(b, BlockIntent::Read);
    if (!guard) return {};
    const std::int64_t bytes =
        image.Store()->GetBlockLineCount(b) * image.Store()->GetBytesPerLine();
    for (std::int64_t i = 0; i < bytes; ++i) {
      sum = (sum ^ guard.Address()[i]) * 1099511628211ULL;
      any |= guard.Address()[i];
    }
  }
  const auto& store = *image.Store();
  return std::to_string(store.GetBytesPixel()) + ' ' + std::to_string(store.GetWidth()) + ' ' +
         std::to_string(store.GetHeight()) + ' ' + std::to_string(store.GetPlanes()) + ' ' +
         (any == 0 ? "zeros" : std::to_string(sum));
}

struct World {
  explicit World(Policy policy) {
    vm::ManagerSeams seams;
    seams.memory = AskingMemory;
    manager = CreateManagerForTest(1024, policy == Policy::Blocks ? 6 : 30, 600, seams);
    manager->SetAllocationPolicy(policy);
    witness = MakeImage<float>(manager, kShape, RandomPixels<float>(kShape, 5));
    witnessed = Digest(witness);
    Bitmap bitmap;
    bitmap.width = 61;
    bitmap.height = 50;
    bitmap.SetPixels([](int x, int y) { return static_cast<std::uint32_t>(x * 5 + y * 70001); });
    colours.emplace(bitmap.Pack());
    Prepare();
    SaveFits(subject, fits);
    const auto row = RandomPixels<Sample>(kShape, 3);
    WriteTiles(tiles, {RICE_1, SHORT_IMG, kShape.width, 8}, TSHORT,
               std::vector<Sample>(row.begin(), row.begin() + kShape.width * kShape.height));
  }

  // The image that operations work on, as it was.
  void Prepare() {
    subject = MakeImage<Sample>(manager, kShape, RandomPixels<Sample>(kShape), 0.5, -3.0);
    for (int plane = 0; plane < 3; ++plane) subject.SetLevel(plane, -1000.0, 9000.0);
    made = CImage();
    std::error_code ignored;
    fs::remove(file, ignored);
  }

  std::int64_t Stores() const { return 1 + (subject.IsEmpty() ? 0 : 1) + (made.IsEmpty() ? 0 : 1); }

  OwnTemporaryFolder folder;
  fs::path fits = folder.Path() / "given.fits";
  fs::path tiles = folder.Path() / "tiles.fits";
  fs::path file = folder.Path() / "made";
  std::shared_ptr<CVmManagerImpl> manager;
  CImage witness;
  std::string witnessed;
  std::optional<Dib> colours;
  CImage subject;
  CImage made;  // what operations with a result of their own fill
};

// What may be left of the subject when an operation fails.
enum class Left {
  kAsItWas,
  kPartly,       // each pixel as it was, or new, or 0
  kUnconverted,  // or, as documented, zeros of the new type
};

// Outcomes that are looked at when nothing fails any more.
constexpr const char* kMade = "the image made";
constexpr const char* kSubject = "the subject";

struct Operation {
  const char* name;
  Left left;
  // Its outcome as text; none when it answered that it failed.
  std::function<std::optional<std::string>(World&)> run;

  std::optional<std::string> Outcome(World& w) const { return Seen(w, run(w)); }
  static std::optional<std::string> Seen(World& w, const std::optional<std::string>& outcome) {
    if (outcome == kMade) return Digest(w.made);
    if (outcome == kSubject) return Digest(w.subject);
    return outcome;
  }
};

void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }

std::optional<std::string> Made(bool done) {
  return done ? std::optional<std::string>(kMade) : std::nullopt;
}
std::optional<std::string> Changed(bool done) {
  return done ? std::optional<std::string>(kSubject) : std::nullopt;
}
std::optional<std::string> TakeOver(World& w, std::unique_ptr<CImage> image) {
  if (image) w.made = std::move(*image);
  return Made(image != nullptr);
}
std::string Text(std::initializer_list<double> numbers) {
  std::string text;
  for (const double number : numbers) text += std::to_string(number) + ' ';
  return text;
}
const CImage::ProgressPtr kSilent;

Operation ChangeBits(const char* name, CImage::ChangeBitsLevel level) {
  return {name, Left::kUnconverted, [level](World& w) {
            return Changed(w.subject.ChangeBits(CImage::DataTypeInt8, false, level, kSilent));
          }};
}

Operation Exchange(const char* name, std::int64_t mapped) {
  return {name, Left::kAsItWas, [mapped](World& w) -> std::optional<std::string> {
            exchange::g_maxMappedSamples = mapped;
            const bool done = CSharedMem::CreateFileMappings(1) == 1 &&
                              CSharedMem::WriteSharedMemory(&w.subject, 1) == 1 &&
                              CSharedMem::ReadSharedMemory(w.manager, &w.made, 1) == 1;
            CSharedMem::CloseMappingHandles();
            return Made(done);
          }};
}

// Saves over a file that is there: afterwards it is the old one or the new one.
template <typename Save>
Operation Saving(const char* name, Save save) {
  return {name, Left::kAsItWas, [save](World& w) -> std::optional<std::string> {
            const auto hook = platform::g_faultHook.exchange(nullptr);
            PutContents(w.file, std::string("old"));
            platform::g_faultHook = hook;
            try {
              save(w);
            } catch (...) {
              platform::g_faultHook = nullptr;
              EXPECT_EQ(Contents(w.file), "old");
              throw;
            }
            platform::g_faultHook = nullptr;
            return Contents(w.file);
          }};
}

const Operation kOperations[] = {
    {"Statistics", Left::kAsItWas,
     [](World& w) {
       const auto [min, max, average] = w.subject.GetMinMaxAvr(-1);
       const auto [low, high, mode] = w.subject.GetMinMaxMode(1, 64, 4);
       return Text({min, max, average, low, high, mode, w.subject.GetStdDev(2)});
     }},
    {"Histogram", Left::kAsItWas,
     [](World& w) {
       std::string text;
       for (const auto count : w.subject.Histogram(1, 9)) text += std::to_string(count) + ' ';
       return text + Text({w.subject.GetPixel(5, 33, 2)});
     }},
    {"SetDefaultLevel", Left::kAsItWas,
     [](World& w) -> std::optional<std::string> {
       if (!w.subject.SetDefaultLevel()) return std::nullopt;
       return Text({w.subject.GetLevelMin(0), w.subject.GetLevelMax(2)});
     }},
    {"Construct", Left::kAsItWas,
     [](World& w) {
       w.made = CImage(w.manager, CImage::DataTypeInt32, 60, 30, 3, 1.0, 0.0, true, kSilent);
       return Made(true);
     }},
    {"AllocImage", Left::kAsItWas,
     [](World& w) {
       w.made.SetBitsPixel(CImage::DataTypeInt8);
       w.made.SetWidth(60);
       w.made.SetHeight(30);
       w.made.SetPlanes(3);
       return Made(w.made.AllocImage(w.manager, kSilent));
     }},
    {"Create", Left::kAsItWas, [](World& w) { return Made(w.made.Create(w.subject, kSilent)); }},
    {"CloneWithoutImage", Left::kAsItWas,
     [](World& w) {
       return TakeOver(w, w.subject.CloneWithoutImage(CImage::DataTypeDouble, kSilent));
     }},
    {"CopyImage", Left::kAsItWas,
     [](World& w) { return Made(w.made.CopyImage(w.subject, kSilent)); }},
    {"ChangeSize", Left::kAsItWas,
     [](World& w) { return Changed(w.subject.ChangeSize(50, 33, kSilent)); }},
    {"ChangePlanes", Left::kAsItWas,
     [](World& w) { return Changed(w.subject.ChangePlanes(2, kSilent)); }},
    {"Fill", Left::kPartly, [](World& w) { return Changed(w.subject.Fill(-1, kFilled)); }},
    {"ScalingAppliedImage", Left::kAsItWas,
     [](World& w) { return TakeOver(w, w.subject.ScalingAppliedImage(kSilent)); }},
    {"ChangeBitsToReal", Left::kAsItWas,
     [](World& w) {
       return Made(w.made.ChangeBits(&w.subject, CImage::DataTypeFloat, true,
                                     CImage::ChangeBitsLevel::Automatic, kSilent));
     }},
    ChangeBits("ChangeBitsRaw", CImage::ChangeBitsLevel::Raw),
    ChangeBits("ChangeBitsCooked", CImage::ChangeBitsLevel::Cooked),
    ChangeBits("ChangeBitsMinMax", CImage::ChangeBitsLevel::MinMax),
    {"AttachDIB", Left::kAsItWas,
     [](World& w) { return Changed(w.subject.AttachDIB(w.manager, w.colours->handle, kSilent)); }},
    Exchange("ExchangeByMapping", 1000000),
    Exchange("ExchangeByFile", 1),
    Saving("SaveFits", [](World& w) { SaveFits(w.subject, w.file); }),
    Saving("SavePng", [](World& w) { SavePng(w.subject, w.file); }),
    {"LoadFits", Left::kAsItWas, [](World& w) { return TakeOver(w, LoadFits(w.manager, w.fits)); }},
    {"LoadFitsTiles", Left::kAsItWas,
     [](World& w) { return TakeOver(w, LoadFits(w.manager, w.tiles)); }},
    {"Manager", Left::kAsItWas,
     [](World&) -> std::optional<std::string> {
       auto configuration = CVmManagerConfiguration::DefaultConfiguration();
       configuration->MemoryRatio = 0;
       configuration->MinMemorySize = 1;
       const auto manager = CVmManager::Create(std::move(configuration));
       // Without a swap file it works in memory alone.
       if (manager->GetDiskLimitBlocks() == 0) return std::nullopt;
       return std::to_string(manager->GetMemoryCapacityBlocks());
     }},
    {"Settings", Left::kAsItWas,
     [](World& w) -> std::optional<std::string> {
       const auto config = Config::OpenFile(w.file);
       config->WriteInt("a", "b", 7);
       EXPECT_EQ(config->ReadInt("a", "b", 0), 7);
       platform::g_faultHook = nullptr;
       // In the file or, where it could not be written, in memory only.
       const std::string text = Contents(w.file);
       if (text.empty()) return std::nullopt;
       return text;
     }},
};

// Under Wine each file takes long: there the faults and the policy that go the most
// different ways.
constexpr bool kSlowFiles = kWindows;

class ImageFaultsTest : public testing::TestWithParam<std::tuple<Operation, Policy>> {
 protected:
  ~ImageFaultsTest() override {
    platform::g_faultHook = nullptr;
    exchange::g_maxMappedSamples = exchange::wire::pixels::kMaxSamples;
    CSharedMem::CloseMappingHandles();
    for (const auto name : platform::kExchangeMappingNames) platform::IsSharedMappingHeld(name);
  }

  // Runs the operation while `Failure(n, ...)` lives, for each n.
  template <typename Failure, typename... Arguments>
  void Loop(World& w, const Arguments&... arguments) {
    for (int n = 1;; ++n) {
      ASSERT_LT(n, 5000);
      SCOPED_TRACE("failure " + std::to_string(n));
      std::optional<std::string> outcome;
      bool happened = false;
      {
        const Failure failure(n, arguments...);
        try {
          outcome = m_operation.run(w);
        } catch (const std::bad_alloc&) {  // CVmMemoryAllocationError is one
        } catch (const FileError& error) {
          EXPECT_FALSE(error.Problem().empty());
        }
        happened = Failure::Happened();
      }
      platform::g_faultHook = nullptr;
      CSharedMem::CloseMappingHandles();
      Check(w, Operation::Seen(w, outcome), happened);
      if (HasFailure()) return;
      // Without faults the same operation works: at once where its subject is as it
      // was, else on a new one.
      if (Digest(w.subject) != m_before || w.subject.GetPlanes() != kShape.planes) w.Prepare();
      ASSERT_EQ(m_operation.Outcome(w), m_expected);
      w.Prepare();
      if (!happened) return;
    }
  }

  void Check(World& w, const std::optional<std::string>& outcome, bool happened) {
    ASSERT_EQ(w.manager->Inspect().fault, "");
    ASSERT_EQ(w.manager->Inspect().pins, 0);
    ASSERT_EQ(w.manager->Inspect().handles, w.Stores());
    ASSERT_EQ(Digest(w.witness), w.witnessed);
    ASSERT_EQ(OpenFiles(), m_openFiles);
    if (!happened) {
      ASSERT_EQ(outcome, m_expected);
    }
    const std::string left = Digest(w.subject);
    const std::string zeros = m_after.substr(0, m_after.rfind(' ')) + " zeros";
    if (m_operation.left == Left::kUnconverted && left == zeros) return;
    if (outcome) {
      ASSERT_EQ(outcome, m_expected);
    } else if (m_operation.left == Left::kPartly) {
      ASSERT_EQ(left.substr(0, left.rfind(' ')), m_before.substr(0, m_before.rfind(' ')));
      const auto former = RandomPixels<Sample>(kShape);
      const auto now = ReadPixels<Sample>(w.subject);
      for (std::size_t i = 0; i < now.size(); ++i) {
        ASSERT_TRUE(now[i] == former[i] || now[i] == kFilled || now[i] == 0) << i << ": " << now[i];
      }
    } else {
      ASSERT_EQ(left, m_before);
    }
  }

  void Begin(World& w) {
    m_before = Digest(w.subject);
    const auto expected = m_operation.Outcome(w);
    ASSERT_TRUE(expected.has_value());
    m_expected = *expected;
    m_after = Digest(w.subject);
    w.Prepare();
    m_files = Files(w);
    m_openFiles = OpenFiles();
  }

  static std::set<std::string> Files(const World& w) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(w.folder.Path())) {
      names.insert(entry.path().filename().string());
    }
    return names;
  }

  const Operation m_operation = std::get<0>(GetParam());
  ScopedMemoryConfig m_config;
  std::string m_before;    // of the subject
  std::string m_after;     // of the subject, when nothing fails
  std::string m_expected;  // outcome
  std::set<std::string> m_files;
  int m_openFiles = 0;
};

TEST_P(ImageFaultsTest, EveryCallToTheSystemMayFail) {
  World w(std::get<1>(GetParam()));
  Begin(w);
  std::vector<Fault> faults = {Fault::kNoSpace, Fault::kShort};
  if (!kSlowFiles) faults.insert(faults.end(), {Fault::kNoMemory, Fault::kIoError});
  for (const Fault fault : faults) {
    for (const bool stays : {false, true}) {
      SCOPED_TRACE(std::to_string(static_cast<int>(fault)) + (stays ? " and later" : ""));
      ASSERT_NO_FATAL_FAILURE(Loop<FaultAt>(w, fault, stays, kCalls));
    }
  }
  // A signal is no failure.
  std::optional<std::string> outcome;
  bool happened = true;
  for (int n = 1; happened; ++n) {
    {
      const FaultAt interrupted(n, Fault::kInterrupted, false, kCalls);
      outcome = m_operation.run(w);
      happened = FaultAt::Happened();
    }
    ASSERT_EQ(Operation::Seen(w, outcome), m_expected);
    w.Prepare();
  }
  if (HasFailure()) return;
  // No temporary file is left, but for those whose removal failed.
  std::set<std::string> left = Files(w);
  for (const auto& name : m_files) left.erase(name);
  for (const auto& name : left) {
    EXPECT_TRUE(name.starts_with(".korin-") || name.ends_with(".lock") || name.ends_with(".new"))
        << name;
  }
}

TEST_P(ImageFaultsTest, EveryAllocationMayFail) {
  World w(std::get<1>(GetParam()));
  Begin(w);
  for (const bool stays : {false, true}) {
    SCOPED_TRACE(stays ? "from then on" : "once");
    ASSERT_NO_FATAL_FAILURE(Loop<HeapFaultAt>(w, stays));
  }
  EXPECT_EQ(Files(w), m_files);
}

std::vector<Policy> Policies() {
  if (kSlowFiles) return {Policy::Blocks};
  return {Policy::Blocks, Policy::Planes};
}

INSTANTIATE_TEST_SUITE_P(All, ImageFaultsTest,
                         testing::Combine(testing::ValuesIn(kOperations),
                                          testing::ValuesIn(Policies())),
                         [](const auto& test) {
                           return std::string(std::get<0>(test.param).name) +
                                  (std::get<1>(test.param) == Policy::Blocks ? "" : "ByPlanes");
                         });

}  // namespace
}  // namespace korin::test
