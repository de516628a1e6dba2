#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

#include "benches.h"
#include "frames.h"
#include "kernels/kernel_calls.h"
#include "platform/swap_file.h"
#include "vm/manager_impl.h"

namespace korin::bench {

namespace {

constexpr std::int64_t kBlock = 262144;
constexpr std::int64_t kMiB = 1 << 20;
volatile double g_sink;

// A file of blocks and as many buffers as a budget has, moved as a manager that kept
// no books would: what leaves a buffer is written before another block is read there.
class PlainTransfers {
 public:
  PlainTransfers(std::int64_t blocks, std::int64_t buffers)
      : m_blocks(blocks),
        m_buffers(buffers),
        m_memory(static_cast<std::size_t>(buffers * kBlock), 'k') {
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

 private:
  char* Buffer(std::int64_t i) {
    return m_memory.data() + static_cast<std::size_t>(i % m_buffers * kBlock);
  }

  std::int64_t m_blocks;
  std::int64_t m_buffers;
  std::vector<char> m_memory;
  platform::SwapFile m_file;
};

// Misses on an image of four times the budget, block after block: each pushes one out.
void BenchMisses(std::int64_t budgetMiB) {
  const std::int64_t blocks = 4 * budgetMiB * kMiB / kBlock;
  const auto manager = ManagerOf(budgetMiB);
  manager->SetAllocationPolicy(Policy::Blocks);
  CImage image(manager, CImage::DataTypeInt16, kBlock / 2, static_cast<int>(blocks), 1, 1.0, 0.0,
               false, CImage::ProgressPtr());
  image.Fill(0, 5.0);
  const auto pass = [&](BlockIntent intent) {
    for (std::int64_t block = 0; block < blocks; ++block) {
      g_sink = image.Store()->PinBlock(block, intent).Address()[0];
    }
  };
  PlainTransfers plain(blocks, budgetMiB * kMiB / kBlock);
  const std::string type = "image_of_" + std::to_string(4 * budgetMiB) + "_MiB";
  for (const bool write : {true, false}) {
    Run({.operation = write ? "miss_out_and_in" : "miss_clean_victim",
         .type = type,
         .contenders = {{"korin", [&] { pass(write ? BlockIntent::Write : BlockIntent::Read); }},
                        {write ? "pwrite+pread" : "pread", [&] { plain.Pass(write); }}},
         .per = static_cast<double>(blocks),
         .sweep = false,
         .serial = true});
  }
}

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

void BenchBookkeeping(std::int64_t resident) {
  constexpr std::int32_t kSmall = 64;
  const std::int64_t blocks = resident + resident / 2;
  vm::ManagerSeams seams;
  seams.swap = [](const std::filesystem::path&) { return std::make_unique<NoTransfers>(); };
  const auto manager = CreateManagerForTest(kSmall, resident, 2 * blocks, std::move(seams));
  CVmImage store(manager, 8, kSmall, blocks, 1, nullptr);
  // Any order but the one of the list; every access misses.
  const std::int64_t step = blocks / 2 * 2 + 1;
  const auto pass = [&](std::int64_t stride) {
    for (std::int64_t i = 0, block = 0; i < blocks; ++i, block = (block + stride) % blocks) {
      g_sink = store.PinBlock(block, BlockIntent::Write).Address()[0];
    }
  };
  Run({.operation = "paging_bookkeeping",
       .type = std::to_string(resident) + "_records",
       .contenders = {{"korin", [&] { pass(step % blocks); }}},
       .per = static_cast<double>(blocks),
       .sweep = false,
       .serial = true});
}

void BenchRows() {
  const auto manager = ManagerOf(64);
  CImage image(manager, CImage::DataTypeInt16, 1000, 1000, 1, 1.0, 0.0, false,
               CImage::ProgressPtr());
  image.Fill(0, 5.0);
  CVmImage& store = *image.Store();
  CVmImage::AddressHandle locked;
  constexpr int kRows = 1000;
  const auto run = [&](const char* operation, auto&& fetch) {
    Run({.operation = operation,
         .type = "uint16",
         .contenders = {{"korin",
                         [&] {
                           for (int y = 0; y < kRows; ++y) fetch(y);
                         }}},
         .per = kRows,
         .sweep = false,
         .serial = true});
  };
  run("fetch_row", [&](int y) { g_sink = *store.GetImageAdr(0, y, 0, false, false, nullptr); });
  run("fetch_row_lock_unlock", [&](int y) {
    g_sink = *store.GetImageAdr(0, y, 0, false, true, &locked);
    store.Unlock(locked);
  });
}

}  // namespace

void BenchPaging() {
  if (Wanted("miss_out_and_in") || Wanted("miss_clean_victim")) {
    BenchMisses(1);
    BenchMisses(16);
  }
  if (Wanted("paging_bookkeeping")) {
    for (const std::int64_t resident : {2000, 28000, 280000}) BenchBookkeeping(resident);
  }
  if (Wanted("fetch_row") || Wanted("fetch_row_lock_unlock")) BenchRows();
}

// Smallest and largest sample of an image of four times the budget, beside a loop that
// reads block after block into one buffer and runs the same kernel on it.
void BenchBudget() {
  if (!Wanted("minmax_4x_budget")) return;
  constexpr std::int64_t kBudgetMiB = 32;
  constexpr std::int64_t kLines = kBlock / (kWidth * 2);  // of one block
  constexpr std::int64_t kBytes = kLines * kWidth * 2;
  constexpr std::int64_t kBlocks = 4 * kBudgetMiB * kMiB / kBlock;
  const auto pixels = SkyPixels<std::uint16_t>(kBlocks * kLines * kWidth);
  const auto manager = ManagerOf(kBudgetMiB);
  manager->SetAllocationPolicy(Policy::Blocks);
  CImage image(manager, CImage::DataTypeInt16, static_cast<int>(kWidth),
               static_cast<int>(kBlocks * kLines), 1, 1.0, 0.0, false, CImage::ProgressPtr());
  SetPixels(image, 0, pixels.data());

  platform::SwapFile file;
  file.Create(std::filesystem::temp_directory_path());
  std::vector<std::uint16_t> buffer(kBytes / 2);
  for (std::int64_t i = 0; i < kBlocks; ++i) {
    file.WriteAt(i * kBlock, pixels.data() + i * kLines * kWidth, kBytes);
  }
  const auto raw = std::filesystem::temp_directory_path() / "korin_bench_frame.gray";
  std::ofstream(raw, std::ios::binary)
      .write(reinterpret_cast<const char*>(pixels.data()),
             static_cast<std::streamsize>(pixels.size() * 2));

  Contest contest{.operation = "minmax_4x_budget",
                  .type = "uint16",
                  .contenders = {{"row", [&] { g_sink = std::get<0>(image.GetMinMaxRaw(0)); }},
                                 {"pread+kernel", [&] {
                                    std::uint16_t low = 0;
                                    std::uint16_t high = 0;
                                    for (std::int64_t i = 0; i < kBlocks; ++i) {
                                      file.ReadAt(i * kBlock, buffer.data(), kBytes);
                                      (void)kernels::MinMax(buffer.data(), kWidth, kLines, kWidth,
                                                            low, high);
                                    }
                                    g_sink = low;
                                  }}}};
  // The same with as many buffers as the budget has blocks: what a budget costs that is
  // really used.
  std::vector<std::uint16_t> buffers(static_cast<std::size_t>(kBlocks / 4 * kBytes / 2));
  contest.contenders.push_back({"pread_ring+kernel", [&] {
                                  std::uint16_t low = 0;
                                  std::uint16_t high = 0;
                                  for (std::int64_t i = 0; i < kBlocks; ++i) {
                                    auto* at = buffers.data() + i % (kBlocks / 4) * (kBytes / 2);
                                    file.ReadAt(i * kBlock, at, kBytes);
                                    (void)kernels::MinMax(at, kWidth, kLines, kWidth, low, high);
                                  }
                                  g_sink = low;
                                }});
  for (auto& peer : VipsFromFile(raw.string(), kWidth, kBlocks * kLines)) {
    contest.contenders.push_back(peer);
  }
  Run(contest);
  if (auto magick = Driver("imagemagick", "magick " + std::to_string(kWidth) + "x" +
                                              std::to_string(kBlocks * kLines) + " " +
                                              std::to_string(kBudgetMiB) + " " + raw.string());
      magick.run) {
    contest.contenders = {magick};
    contest.serial = true;
    contest.mostRounds = 1;
    Run(contest);
  }
  std::filesystem::remove(raw);
}

}  // namespace korin::bench
