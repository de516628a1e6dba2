#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "exchange/exchange_sample.h"
#include "exchange/pixel_exchange.h"
#include "exchange/wire_layout.h"
#include "korinimage/shared_mem.h"
#include "platform/exchange_names.h"
#include "platform/fault.h"
#include "platform/shared_mapping.h"
#include "support/system.h"
#include "support/temporary_folder.h"

namespace korin::test {

// True as soon as the condition holds. An object that this process let go of may
// be removed a moment later, by another program's sweep that was looking at it.
template <typename Condition>
bool Soon(Condition condition) {
  for (int i = 0; i < 1000; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return false;
}

namespace wire = exchange::wire;

struct Mapping {
  std::string_view name;
  std::int64_t size;
};
inline constexpr Mapping kImageMapping{"KRNIMG_SHAREDMEM_IMAGE", 1168};
inline constexpr Mapping kHeaderMapping{"KRNIMG_SHAREDMEM_HEADER", 43168};
inline constexpr Mapping kPixelMapping{"KRNIMG_SHAREDMEM_VMIMAGE", 300120000};

// Each test begins and ends without an exchange, a leftover or a lowered limit.
class ExchangeTest : public ImageTest {
 protected:
  ExchangeTest() { Clear(); }
  ~ExchangeTest() override {
    Clear();
    for (const auto name : platform::kExchangeMappingNames) {
      EXPECT_TRUE(Soon([&] { return !platform::IsSharedMappingHeld(name); })) << name;
    }
  }

  static std::filesystem::path FilePath() {
    return std::filesystem::temp_directory_path() / platform::kExchangeFileName;
  }
  static bool FileExists() { return std::filesystem::exists(FilePath()); }

  // The first bytes of a mapping as any process sees them.
  static std::vector<BYTE> RawBytes(const Mapping& which, std::int64_t count) {
    platform::SharedMapping mapping;
    std::vector<BYTE> bytes(static_cast<std::size_t>(count));
    EXPECT_TRUE(mapping.Open(which.name, which.size));
    EXPECT_TRUE(mapping.ReadAt(0, bytes.data(), bytes.size()));
    return bytes;
  }
  static std::vector<BYTE> RawBytes(const Mapping& which) { return RawBytes(which, which.size); }
  static void SetRawBytes(const Mapping& which, const std::vector<BYTE>& bytes) {
    platform::SharedMapping mapping;
    EXPECT_TRUE(mapping.Open(which.name, which.size));
    EXPECT_TRUE(mapping.WriteAt(0, bytes.data(), bytes.size()));
  }

  static int Write(const CImage& image, bool pixels = true) {
    return CSharedMem::WriteSharedMemory(&image, pixels ? 1 : 0);
  }
  int Read(CImage& image, bool pixels = true) {
    return CSharedMem::ReadSharedMemory(m_manager, &image, pixels ? 1 : 0);
  }

  OwnTemporaryFolder m_temporary;
  std::shared_ptr<CVmManager> m_manager = MakeSampleManager(0);

 private:
  static void Clear() {
    platform::g_faultHook = nullptr;
    exchange::g_maxMappedSamples = wire::pixels::kMaxSamples;
    CSharedMem::CloseMappingHandles();
    std::error_code ignored;
    std::filesystem::remove(FilePath(), ignored);
  }
};

// Another process; it ends when its input does.
class Partner {
 public:
  explicit Partner(const std::string& arguments)
      : m_pipe(OpenPipe(ShellCommand("\"" + Program() + "\" " + arguments).c_str())) {}
  Partner(const Partner&) = delete;
  Partner& operator=(const Partner&) = delete;
  ~Partner() { Finish(); }

  int Finish() {  // its exit status, 0 for success
    std::FILE* const pipe = std::exchange(m_pipe, nullptr);
    return pipe == nullptr ? -1 : ClosePipe(pipe);
  }

 private:
  // The partner may be one of another build, of 32 bits for a program of 64.
  static std::string Program() {
    const char* const other = std::getenv("KORIN_EXCHANGE_PARTNER");
    return other == nullptr ? EXCHANGE_PARTNER : other;
  }

  std::FILE* m_pipe;
};

// A file that partners report through.
class ReportFile {
 public:
  std::filesystem::path Path() const { return m_folder.Path() / "report"; }
  std::string Argument() const { return "\"" + Path().string() + "\""; }
  bool WaitForText(const std::string& text) const {
    for (int i = 0; i < 10; ++i) {
      if (Soon([&] { return Contents(Path()) == text; })) return true;
    }
    return false;
  }

 private:
  ScratchFolder m_folder;
};

}  // namespace korin::test
