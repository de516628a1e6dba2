#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
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

#ifdef _WIN32
#define popen _popen
#define pclose _pclose
#endif

namespace korin::test {

namespace wire = exchange::wire;

// Each test begins and ends without an exchange, a leftover or a lowered limit.
class ExchangeTest : public ImageTest {
 protected:
  ExchangeTest() { Clear(); }
  ~ExchangeTest() override {
    Clear();
    for (const auto name : platform::kExchangeMappingNames) {
      EXPECT_FALSE(platform::IsSharedMappingHeld(name)) << name;
    }
  }

  static std::filesystem::path FilePath() {
    return std::filesystem::temp_directory_path() / platform::kExchangeFileName;
  }
  static bool FileExists() { return std::filesystem::exists(FilePath()); }

  // The bytes of a mapping as any process sees them.
  static std::vector<BYTE> RawBytes(std::string_view name, std::int64_t size,
                                    std::int64_t count = -1) {
    platform::SharedMapping mapping;
    std::vector<BYTE> bytes(static_cast<std::size_t>(count < 0 ? size : count));
    EXPECT_TRUE(mapping.Open(name, size));
    EXPECT_TRUE(mapping.ReadAt(0, bytes.data(), bytes.size()));
    return bytes;
  }
  static void SetRawBytes(std::string_view name, std::int64_t size, const void* bytes,
                          std::size_t count, std::int64_t offset = 0) {
    platform::SharedMapping mapping;
    EXPECT_TRUE(mapping.Open(name, size) && mapping.WriteAt(offset, bytes, count));
  }

  static int Write(const CImage& image, bool pixels = true) {
    return CSharedMem::WriteSharedMemory(&image, pixels ? 1 : 0);
  }
  int Read(CImage& image, bool pixels = true) {
    return CSharedMem::ReadSharedMemory(m_manager, &image, pixels ? 1 : 0);
  }

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
      : m_pipe(popen(("\"" EXCHANGE_PARTNER "\" " + arguments).c_str(), "w")) {}
  Partner(const Partner&) = delete;
  Partner& operator=(const Partner&) = delete;
  ~Partner() { Finish(); }

  int Finish() {  // its exit status, 0 for success
    std::FILE* const pipe = std::exchange(m_pipe, nullptr);
    return pipe == nullptr ? -1 : pclose(pipe);
  }

 private:
  std::FILE* m_pipe;
};

inline std::string Contents(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// A file that partners report through, removed at the end.
class ReportFile {
 public:
  ReportFile() : m_path(std::filesystem::path(testing::TempDir()) / "exchange_partner_report") {
    std::filesystem::remove(m_path);
  }
  ~ReportFile() {
    std::error_code ignored;
    std::filesystem::remove(m_path, ignored);
  }
  const std::filesystem::path& Path() const { return m_path; }
  std::string Argument() const { return "\"" + m_path.string() + "\""; }
  bool WaitForText(const std::string& text) const {
    for (int i = 0; i < 3000; ++i) {
      if (Contents(m_path) == text) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
  }

 private:
  std::filesystem::path m_path;
};

}  // namespace korin::test
