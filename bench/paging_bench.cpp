#include <algorithm>
#include <filesystem>
#include <fstream>

#include "frames.h"
#include "kernels/kernel_calls.h"
#include "platform/swap_file.h"
#include "vm/manager_impl.h"

namespace korin::bench {

namespace {

constexpr std::int64_t kBlock = 262144;
constexpr std::int64_t kMiB = 1 << 20;
volatile double g_sink;

// Passes of so many steps each for one timing: long enough that what slows the machine
// for a moment, or what ran before, does not decide it.
constexpr int PassesOf(std::int64_t steps, std::int64_t wanted) {
  return static_cast<int>(std::max<std::int64_t>(wanted / steps, 1));
}

// A file of blocks and as many buffers as a budget has, moved as a manager that kept
// no books would: what leaves a buffer is written before another block is read there.
class PlainTransfers {
 public:
  PlainTransfers(std::int64_t blocks, std::int64_t buffers)
      : m_blocks(blocks),
        m_buffers(buffers),
        m_memory(static_cast<std::size_t>(buffers * kBlock), 'k'),
        m_copies(static_cast<std::size_t>(blocks * kBlock), 'k') {
    m_file.Create(std::filesystem::temp_directory_path());
    m_file.SetSize(blocks * kBlock);
    for (std::int64_t i = 0; i < blocks; ++i) m_file.WriteAt(i * kBlock, Buffer(i), kBlock);
  }

  void Pass(bool write) {
    for (std::int64_t i = 0; i < m_blocks; ++i) {
      const std::int64_t victim = (i + m_blocks - m_buffers) % m_blocks;
      if (write) m_file.WriteAt(victim * kBlock, Buffer(i), kBlock);
      m_file.ReadAt(i * kBlock, Buffer(i), kBlock);
    }
  }

  // The same with memory in place of the file: what the copying alone takes, which a
  // file in the system's cache costs as well.
  void PassInMemory(bool write) {
    for (std::int64_t i = 0; i < m_blocks; ++i) {
      const std::int64_t victim = (i + m_blocks - m_buffers) % m_blocks;
      if (write) std::memcpy(m_copies.data() + victim * kBlock, Buffer(i), kBlock);
      std::memcpy(Buffer(i), m_copies.data() + i * kBlock, kBlock);
    }
  }

 private:
  char* Buffer(std::int64_t i) {
    return m_memory.data() + static_cast<std::size_t>(i % m_buffers * kBlock);
  }

  std::int64_t m_blocks;
  std::int64_t m_buffers;
  std::vector<char> m_memory;
  std::vector<char> m_copies;
  platform::SwapFile m_file;
};

// Misses on an image of four times the budget, block after block: each pushes one out.
template <std::int64_t kBudgetMiB>
struct Misses {
  static constexpr std::int64_t kBlocks = 4 * kBudgetMiB * kMiB / kBlock;

  Misses() {
    manager->SetAllocationPolicy(Policy::Blocks);
    image = ImageOf<std::uint16_t>(manager, kBlock / 2, kBlocks);
    image.Fill(0, 5.0);
  }

  void Pass(BlockIntent intent) {
    for (std::int64_t block = 0; block < kBlocks; ++block) {
      g_sink = image.Store()->PinBlock(block, intent).Address()[0];
    }
  }

  static void Add() {
    constexpr int kPasses = PassesOf(kBlocks, 500);
    for (const bool write : {true, false}) {
      const auto intent = write ? BlockIntent::Write : BlockIntent::Read;
      Contest contest{.operation = write ? "miss_out_and_in" : "miss_clean_victim",
                      .type = "image_of_" + std::to_string(4 * kBudgetMiB) + "_MiB"};
      contest.contenders = {
          {"korin", [intent] { Shared<Misses>().Pass(intent); }, {}, kPasses},
          {write ? "pwrite+pread" : "pread",
           [write] { Shared<Misses>().plain.Pass(write); },
           {},
           kPasses},
          {"memcpy", [write] { Shared<Misses>().plain.PassInMemory(write); }, {}, kPasses}};
      contest.per = static_cast<double>(kBlocks);
      contest.sweep = false;
      contest.serial = true;
      bench::Add(contest);
    }
  }

  std::shared_ptr<CVmManager> manager = ManagerOf(kBudgetMiB);
  CImage image;
  PlainTransfers plain{kBlocks, kBudgetMiB* kMiB / kBlock};
};

// A swap file that moves nothing: what is left of a miss is the manager's own work.
class NoTransfers : public CVmVirtualMemory {
 public:
  void* GetAddress() override { return nullptr; }
  const void* GetAddress() const override { return nullptr; }
  bool IsNull() const override { return true; }
  bool IsValid() const override { return false; }
  bool IsOpen() const override { return true; }
  bool Seek(std::int64_t) override { return true; }
  bool Truncate(std::int64_t) override { return true; }
  bool Read(void*, std::int64_t) override { return true; }
  bool Write(const void*, std::int64_t) override { return true; }
  std::wstring GetPath() const override { return {}; }
};

// `kStride` goes from block to block and has no divisor in common with their number.
template <std::int64_t kResident, std::int64_t kStride>
struct Bookkeeping {
  static constexpr std::int64_t kBlocks = kResident + kResident / 2;
  static constexpr std::int32_t kSmall = 64;

  // Every access misses.
  void Pass() {
    for (std::int64_t i = 0, block = 0; i < kBlocks; ++i, block = (block + kStride) % kBlocks) {
      g_sink = store.PinBlock(block, BlockIntent::Write).Address()[0];
    }
  }

  static std::shared_ptr<CVmManager> Manager() {
    vm::ManagerSeams seams;
    seams.swap = [](const std::filesystem::path&) { return std::make_unique<NoTransfers>(); };
    return CreateManagerForTest(kSmall, kResident, 2 * kBlocks, std::move(seams));
  }

  static void Add() {
    bench::Add(
        {.operation = "paging_bookkeeping",
         .type = std::to_string(kResident) + (kStride == 1 ? "_records" : "_scattered"),
         .contenders =
             {{"korin", [] { Shared<Bookkeeping>().Pass(); }, {}, PassesOf(kBlocks, 100000)}},
         .per = static_cast<double>(kBlocks),
         .sweep = false,
         .serial = true});
  }

  std::shared_ptr<CVmManager> manager = Manager();
  CVmImage store{manager, 8, kSmall, kBlocks, 1, nullptr};
};

struct Rows {
  Rows() { image.Fill(0, 5.0); }
  std::shared_ptr<CVmManager> manager = ManagerOf(64);
  CImage image = ImageOf<std::uint16_t>(manager, 1000, 1000);
  CVmImage::AddressHandle locked;
};

template <typename Fetch>
void AddRows(const char* operation, Fetch fetch) {
  constexpr int kRows = 1000;
  const auto run = [fetch] {
    auto& rows = Shared<Rows>();
    for (int y = 0; y < kRows; ++y) fetch(rows, *rows.image.Store(), y);
  };
  Add({.operation = operation,
       .type = "uint16",
       .contenders = {{.who = "korin", .run = run, .repeats = 20}},
       .per = kRows,
       .sweep = false,
       .serial = true});
}

constexpr std::int64_t kBudgetMiB = 32;

// An image of four times the budget, and the same blocks in a plain file.
struct Budget {
  static constexpr std::int64_t kBlockLines = kBlock / (kWidth * 2);
  static constexpr std::int64_t kBytes = kBlockLines * kWidth * 2;
  static constexpr std::int64_t kBlocks = 4 * kBudgetMiB * kMiB / kBlock;
  static constexpr std::int64_t kLines = kBlocks * kBlockLines;

  static std::filesystem::path RawPath() {
    return std::filesystem::temp_directory_path() / "korin_bench_frame.gray";
  }

  Budget() {
    const auto pixels = SkyPixels<std::uint16_t>(kLines * kWidth);
    manager->SetAllocationPolicy(Policy::Blocks);
    image = ImageOf<std::uint16_t>(manager, kWidth, kLines);
    SetPixels(image, 0, pixels.data());
    file.Create(std::filesystem::temp_directory_path());
    for (std::int64_t i = 0; i < kBlocks; ++i) {
      file.WriteAt(i * kBlock, pixels.data() + i * kBlockLines * kWidth, kBytes);
    }
    std::ofstream(RawPath(), std::ios::binary)
        .write(reinterpret_cast<const char*>(pixels.data()),
               static_cast<std::streamsize>(pixels.size() * 2));
  }
  ~Budget() { std::filesystem::remove(RawPath()); }

  // A loop that reads block after block, into as many buffers in turn, and runs the
  // same kernel on it.
  void ReadAndMeasure(std::int64_t inTurn) {
    std::uint16_t low = 0;
    std::uint16_t high = 0;
    for (std::int64_t i = 0; i < kBlocks; ++i) {
      std::uint16_t* const at = buffers.data() + i % inTurn * (kBytes / 2);
      file.ReadAt(i * kBlock, at, kBytes);
      (void)kernels::MinMax(at, kWidth, kBlockLines, kWidth, low, high);
    }
    g_sink = low;
  }

  std::shared_ptr<CVmManager> manager = ManagerOf(kBudgetMiB);
  CImage image;
  platform::SwapFile file;
  std::vector<std::uint16_t> buffers = std::vector<std::uint16_t>(kBlocks / 4 * kBytes / 2);
};

}  // namespace

void AddPaging() {
  Misses<1>::Add();
  Misses<16>::Add();
  Bookkeeping<2000, 1>::Add();
  Bookkeeping<28000, 1>::Add();
  Bookkeeping<280000, 1>::Add();
  Bookkeeping<2000, 7919>::Add();
  Bookkeeping<28000, 7919>::Add();
  Bookkeeping<280000, 7919>::Add();
  AddRows("fetch_row", [](Rows&, CVmImage& store, int y) {
    g_sink = *store.GetImageAdr(0, y, 0, false, false, nullptr);
  });
  AddRows("fetch_row_lock_unlock", [](Rows& rows, CVmImage& store, int y) {
    g_sink = *store.GetImageAdr(0, y, 0, false, true, &rows.locked);
    store.Unlock(rows.locked);
  });
}

void AddBudget() {
  const auto budget = []() -> Budget& { return Shared<Budget>(); };
  const std::string raw = Budget::RawPath().string();
  Contest contest{.operation = "minmax_4x_budget", .type = "uint16"};
  contest.contenders = {
      {"row", [=] { g_sink = std::get<0>(budget().image.GetMinMaxRaw(0)); }},
      {"pread+kernel", [=] { budget().ReadAndMeasure(1); }},
      // As many buffers as the budget has blocks: what a budget costs that is really used.
      {"pread_ring+kernel", [=] { budget().ReadAndMeasure(Budget::kBlocks / 4); }}};
  Append(contest.contenders, VipsFromFile(raw, kWidth, Budget::kLines));
  contest.contenders.push_back(Driver("imagemagick", "magick " + std::to_string(kWidth) + "x" +
                                                         std::to_string(Budget::kLines) + " " +
                                                         std::to_string(kBudgetMiB) + " " + raw));
  Add(contest);
}

}  // namespace korin::bench
