#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>

#include "korinimage/config.h"
#include "platform/fault.h"

namespace korin::test {

// A settings file in a folder of its own that goes with the test.
class SettingsFile : public testing::Test {
 protected:
  SettingsFile() {
    std::random_device random;
    folder = std::filesystem::temp_directory_path() /
             ("korin-settings-" + std::to_string(random()) + std::to_string(random()));
    std::filesystem::create_directory(folder);
    file = folder / "sub" / "test.ini";
  }
  ~SettingsFile() override {
    platform::g_faultHook = nullptr;
    std::filesystem::remove_all(folder);
  }

  void Put(const std::string& bytes) const {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << bytes;
  }
  std::string Bytes() const {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
  }
  std::shared_ptr<Config> Open() const { return Config::OpenFile(file); }
  // Files beside the settings file: locks and half-written copies left behind.
  int Leftovers() const {
    int n = 0;
    for (const auto& entry : std::filesystem::directory_iterator(file.parent_path())) {
      n += entry.path() == file ? 0 : 1;
    }
    return n;
  }

  std::filesystem::path folder;
  std::filesystem::path file;
};

}  // namespace korin::test
