// Paging beside plain file transfers of the same blocks: an image four times the
// budget, so that every block that comes in pushes one out.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "korinimage/korinimage.h"

namespace {

constexpr int kBlock = 262144;
constexpr int kBudgetMiB = 16;
constexpr int kBlocks = 4 * kBudgetMiB * 4;  // of 256 KiB

// Every pixel line is one block, so that rows and blocks are one.
CImage PagedImage(const std::shared_ptr<CVmManager>& manager) {
  CImage image(manager, CImage::DataTypeInt16, kBlock / 2, kBlocks, 1, 1.0, 0.0, false,
               CImage::ProgressPtr());
  image.Fill(0, 5.0);
  return image;
}

std::shared_ptr<CVmManager> SmallManager() {
  auto configuration = CVmManagerConfiguration::DefaultConfiguration();
  configuration->MemoryRatio = 0;
  configuration->MinMemorySize = kBudgetMiB;
  return CVmManager::Create(std::move(configuration));
}

void PageBlocks(benchmark::State& state, korin::BlockIntent intent) {
  const auto manager = SmallManager();
  CImage image = PagedImage(manager);
  for (auto _ : state) {
    for (std::int64_t block = 0; block < kBlocks; ++block) {
      const auto guard = image.Store()->PinBlock(block, intent);
      benchmark::DoNotOptimize(guard.Address());
    }
  }
  state.SetItemsProcessed(state.iterations() * kBlocks);
  state.SetBytesProcessed(state.iterations() * std::int64_t{kBlocks} * kBlock);
}

// The same transfers on a plain file, through the C library without buffering.
void PlainBlocks(benchmark::State& state, bool write) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), &std::fclose);
  std::setvbuf(file.get(), nullptr, _IONBF, 0);
  std::vector<char> block(kBlock, 'k');
  for (int i = 0; i < kBlocks; ++i) std::fwrite(block.data(), kBlock, 1, file.get());
  for (auto _ : state) {
    for (int i = 0; i < kBlocks; ++i) {
      std::fseek(file.get(), static_cast<long>(i) * kBlock, SEEK_SET);
      if (std::fread(block.data(), kBlock, 1, file.get()) != 1) state.SkipWithError("read");
      if (!write) continue;
      std::fseek(file.get(), static_cast<long>(i) * kBlock, SEEK_SET);
      std::fwrite(block.data(), kBlock, 1, file.get());
    }
  }
  state.SetItemsProcessed(state.iterations() * kBlocks);
  state.SetBytesProcessed(state.iterations() * std::int64_t{kBlocks} * kBlock);
}

// What fetching and locking a row costs when its block is in memory.
void FetchRow(benchmark::State& state) {
  const auto manager = SmallManager();
  CImage image(manager, CImage::DataTypeInt16, 1000, 1000, 1, 1.0, 0.0, false,
               CImage::ProgressPtr());
  CVmImage::AddressHandle locked;
  std::int64_t y = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(image.Store()->GetImageAdr(0, y, 0, false, true, &locked));
    image.Unlock(locked);
    y = (y + 1) % 1000;
  }
}

void StatisticsWhilePaging(benchmark::State& state) {
  const auto manager = SmallManager();
  const CImage image = PagedImage(manager);
  for (auto _ : state) benchmark::DoNotOptimize(image.GetMinMaxRaw(0));
  state.SetBytesProcessed(state.iterations() * std::int64_t{kBlocks} * kBlock);
}

BENCHMARK_CAPTURE(PageBlocks, read, korin::BlockIntent::Read)
    ->Name("page_in/block/korin")
    ->UseRealTime();
BENCHMARK_CAPTURE(PageBlocks, write, korin::BlockIntent::Write)
    ->Name("page_in_out/block/korin")
    ->UseRealTime();
BENCHMARK_CAPTURE(PlainBlocks, read, false)->Name("page_in/block/plain_file")->UseRealTime();
BENCHMARK_CAPTURE(PlainBlocks, write, true)->Name("page_in_out/block/plain_file")->UseRealTime();
BENCHMARK(FetchRow)->Name("fetch_and_lock/row/korin");
BENCHMARK(StatisticsWhilePaging)->Name("minmax_4x_budget/uint16/korin")->UseRealTime();

}  // namespace
