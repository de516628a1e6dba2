#pragma once

#include <cstdint>
#include <cwchar>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "korinimage/config.h"

namespace korin::test {

// Settings kept in memory, for tests that must not touch the user's file.
class MemoryConfig : public Config {
 public:
  int ReadInt(std::string_view section, std::string_view key, int fallback) const override {
    return static_cast<int>(ReadInt64(section, key, fallback));
  }
  std::int64_t ReadInt64(std::string_view section, std::string_view key,
                         std::int64_t fallback) const override {
    const std::wstring text = ReadString(section, key, L"");
    wchar_t* end = nullptr;
    const std::int64_t value = std::wcstoll(text.c_str(), &end, 10);
    return text.empty() || *end != L'\0' ? fallback : value;
  }
  double ReadDouble(std::string_view section, std::string_view key,
                    double fallback) const override {
    const std::wstring text = ReadString(section, key, L"");
    wchar_t* end = nullptr;
    const double value = std::wcstod(text.c_str(), &end);
    return text.empty() || *end != L'\0' ? fallback : value;
  }
  bool ReadBool(std::string_view section, std::string_view key, bool fallback) const override {
    return ReadInt64(section, key, fallback ? 1 : 0) != 0;
  }
  std::wstring ReadString(std::string_view section, std::string_view key,
                          std::wstring_view fallback) const override {
    const std::lock_guard lock(m_mutex);
    const auto found = m_values.find(NameOf(section, key));
    return found == m_values.end() ? std::wstring(fallback) : found->second;
  }

  void WriteInt(std::string_view section, std::string_view key, int value) override {
    WriteInt64(section, key, value);
  }
  void WriteInt64(std::string_view section, std::string_view key, std::int64_t value) override {
    WriteString(section, key, std::to_wstring(value));
  }
  void WriteString(std::string_view section, std::string_view key,
                   std::wstring_view value) override {
    const std::lock_guard lock(m_mutex);
    m_values[NameOf(section, key)] = value;
  }
  void DeleteValue(std::string_view section, std::string_view key) override {
    const std::lock_guard lock(m_mutex);
    m_values.erase(NameOf(section, key));
  }

 private:
  static std::string NameOf(std::string_view section, std::string_view key) {
    return std::string(section).append(1, '\n').append(key);
  }

  mutable std::mutex m_mutex;
  std::map<std::string, std::wstring> m_values;
};

// Installs empty in-memory settings for as long as it lives.
class ScopedMemoryConfig {
 public:
  ScopedMemoryConfig() { Config::SetDefaultConfig(m_config); }
  ~ScopedMemoryConfig() { Config::SetDefaultConfig(nullptr); }
  ScopedMemoryConfig(const ScopedMemoryConfig&) = delete;
  ScopedMemoryConfig& operator=(const ScopedMemoryConfig&) = delete;

  MemoryConfig* operator->() const { return m_config.get(); }

 private:
  std::shared_ptr<MemoryConfig> m_config = std::make_shared<MemoryConfig>();
};

}  // namespace korin::test
