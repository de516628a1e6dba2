#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "korinimage/config.h"
#include "platform/fault.h"
#include "support/temporary_folder.h"

namespace korin::test {

// A settings file in a folder of its own that goes with the test.
class SettingsFile : public testing::Test {
 protected:
  ~SettingsFile() override { platform::g_faultHook = nullptr; }

  void Put(const std::string& bytes) const {
    std::filesystem::create_directories(file.parent_path());
    PutContents(file, bytes);
  }
  std::shared_ptr<Config> Open() const { return Config::OpenFile(file); }
  // A number of the section "a" as it stands in the file, 0: none.
  int Stored(const char* key) const { return Open()->ReadInt("a", key, 0); }
  // Files beside the settings file: locks and half-written copies left behind.
  int Leftovers() const {
    auto names = Names(file.parent_path());
    names.erase(file.filename().string());
    return static_cast<int>(names.size());
  }

  ScratchFolder m_folder;
  const std::filesystem::path& folder = m_folder.Path();
  const std::filesystem::path file = folder / "sub" / "test.ini";
};

}  // namespace korin::test
