#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "korinimage/config.h"
#include "korinimage/image.h"
#include "korinimage/io/io.h"
#include "support/memory_config.h"

namespace korin::test {

// A folder of its own, removed at the end, and managers that page early. The
// teardown fails when an image left blocks behind.
class IoTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Config::SetDefaultConfig(std::make_shared<MemoryConfig>());
    std::random_device random;
    m_folder = std::filesystem::temp_directory_path() / ("korin_io_" + std::to_string(random()));
    std::filesystem::create_directory(m_folder);
    m_manager = MakeManager(1, 64);
  }
  void TearDown() override {
    EXPECT_EQ(m_manager->GetAllocatedBlocks(), 0);
    m_manager.reset();
    std::filesystem::remove_all(m_folder);
    Config::SetDefaultConfig(nullptr);
  }

  static std::shared_ptr<CVmManager> MakeManager(int memoryMib, int blockKib, int diskMib = 64) {
    Config::DefaultConfig()->WriteInt("VMManager", "MaxDiskSize", diskMib);
    auto settings = CVmManagerConfiguration::DefaultConfiguration();
    settings->MemoryRatio = 0;
    settings->MinMemorySize = memoryMib;
    settings->BlockSize = blockKib * 1024;
    settings->MaxDiskSize = diskMib;
    return CVmManager::Create(std::move(settings));
  }

  std::filesystem::path Path(const std::string& name) const { return m_folder / name; }

  // Names in the folder.
  std::vector<std::string> Files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder)) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }

  static std::vector<std::uint8_t> ReadBytes(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }
  static void WriteBytes(const std::filesystem::path& file,
                         const std::vector<std::uint8_t>& bytes) {
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
  }

  // A FITS unit: cards, END, padding, data, padding.
  static std::vector<std::uint8_t> Unit(const std::vector<std::string>& cards,
                                        const std::vector<std::uint8_t>& data) {
    std::string text;
    for (std::string card : cards) {
      card.resize(80, ' ');
      text += card;
    }
    text += std::string("END") + std::string(77, ' ');
    text.resize((text.size() + 2879) / 2880 * 2880, ' ');
    std::vector<std::uint8_t> bytes(text.begin(), text.end());
    bytes.insert(bytes.end(), data.begin(), data.end());
    bytes.resize((bytes.size() + 2879) / 2880 * 2880, 0);
    return bytes;
  }

  // All bytes of the pixels, planes and rows in order.
  static std::vector<std::uint8_t> Pixels(CImage& image) {
    std::vector<std::uint8_t> bytes;
    CVmImage& store = *image.Store();
    for (std::int64_t block = 0; block < store.GetBlockCount(); ++block) {
      const BlockGuard guard = store.PinBlock(block, BlockIntent::Read);
      const std::int64_t size = store.GetBlockLineCount(block) * store.GetBytesPerLine();
      bytes.insert(bytes.end(), guard.Address(), guard.Address() + size);
    }
    return bytes;
  }
  static void SetPixels(CImage& image, const std::vector<std::uint8_t>& bytes) {
    CVmImage& store = *image.Store();
    std::size_t at = 0;
    for (std::int64_t block = 0; block < store.GetBlockCount(); ++block) {
      const BlockGuard guard = store.PinBlock(block, BlockIntent::Overwrite);
      const auto size =
          static_cast<std::size_t>(store.GetBlockLineCount(block) * store.GetBytesPerLine());
      std::memcpy(guard.Address(), bytes.data() + at, size);
      at += size;
    }
  }
  static std::vector<std::uint8_t> RandomBytes(std::size_t count, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<std::uint8_t> bytes(count);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
    return bytes;
  }

  std::filesystem::path m_folder;
  std::shared_ptr<CVmManager> m_manager;
};

// Big-endian bytes of values.
template <typename T>
std::vector<std::uint8_t> BigEndian(const std::vector<T>& values) {
  std::vector<std::uint8_t> bytes;
  for (const T value : values) {
    std::uint8_t raw[sizeof(T)];
    std::memcpy(raw, &value, sizeof(T));
    for (std::size_t i = sizeof(T); i-- > 0;) bytes.push_back(raw[i]);  // little-endian hosts
  }
  return bytes;
}

template <typename T>
std::vector<T> As(const std::vector<std::uint8_t>& bytes) {
  std::vector<T> values(bytes.size() / sizeof(T));
  std::memcpy(values.data(), bytes.data(), values.size() * sizeof(T));
  return values;
}

}  // namespace korin::test
