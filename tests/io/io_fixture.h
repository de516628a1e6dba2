#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "korinimage/image.h"
#include "korinimage/io/io.h"
#include "support/memory_config.h"
#include "support/store_bytes.h"
#include "support/temporary_folder.h"

namespace korin::test {

using Bytes = std::vector<std::uint8_t>;

// A folder of its own, removed at the end, and managers that page early. The
// teardown fails when an image left blocks behind.
class IoTest : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(m_manager->GetAllocatedBlocks(), 0); }

  std::shared_ptr<CVmManager> MakeManager(int memoryMib, int blockKib, int diskMib = 64) {
    m_config->WriteInt("VMManager", "MaxDiskSize", diskMib);
    auto settings = CVmManagerConfiguration::DefaultConfiguration();
    settings->MemoryRatio = 0;
    settings->MinMemorySize = memoryMib;
    settings->BlockSize = blockKib * 1024;
    settings->MaxDiskSize = diskMib;
    return CVmManager::Create(std::move(settings));
  }

  std::filesystem::path Path(const std::string& name) const { return m_folder / name; }

  static Bytes ReadBytes(const std::filesystem::path& file) { return Contents<Bytes>(file); }
  static void WriteBytes(const std::filesystem::path& file, const Bytes& bytes) {
    PutContents(file, bytes);
  }

  // A FITS unit: cards, END, padding, data, padding.
  static Bytes Unit(const std::vector<std::string>& cards, const Bytes& data) {
    std::string text;
    for (std::string card : cards) {
      card.resize(80, ' ');
      text += card;
    }
    text += std::string("END") + std::string(77, ' ');
    text.resize((text.size() + 2879) / 2880 * 2880, ' ');
    Bytes bytes(text.begin(), text.end());
    bytes.insert(bytes.end(), data.begin(), data.end());
    bytes.resize((bytes.size() + 2879) / 2880 * 2880, 0);
    return bytes;
  }

  // All bytes of the pixels, planes and rows in order.
  static Bytes Pixels(CImage& image) { return StoreBytes(*image.Store()); }
  static void SetPixels(CImage& image, const Bytes& bytes) { SetStoreBytes(*image.Store(), bytes); }
  static Bytes RandomBytes(std::size_t count, unsigned seed) {
    std::mt19937 random(seed);
    Bytes bytes(count);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
    return bytes;
  }

  ScratchFolder m_scratch;
  const std::filesystem::path& m_folder = m_scratch.Path();
  ScopedMemoryConfig m_config;
  std::shared_ptr<CVmManager> m_manager = MakeManager(1, 64);
};

// Big-endian bytes of values.
template <typename T>
Bytes BigEndian(const std::vector<T>& values) {
  Bytes bytes;
  for (const T value : values) {
    std::uint8_t raw[sizeof(T)];
    std::memcpy(raw, &value, sizeof(T));
    for (std::size_t i = sizeof(T); i-- > 0;) bytes.push_back(raw[i]);  // little-endian hosts
  }
  return bytes;
}

// Bytes as values of this machine, and back.
template <typename T>
std::vector<T> As(const Bytes& bytes) {
  std::vector<T> values(bytes.size() / sizeof(T));
  std::memcpy(values.data(), bytes.data(), values.size() * sizeof(T));
  return values;
}
template <typename T>
Bytes BytesOf(const std::vector<T>& values) {
  Bytes bytes(values.size() * sizeof(T));
  std::memcpy(bytes.data(), values.data(), bytes.size());
  return bytes;
}

}  // namespace korin::test
