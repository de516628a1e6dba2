#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "korinimage/config.h"

namespace korin::settings {

class IniText;

// Settings in an INI file. Values are kept in memory. A change is put on top of what
// the file holds at that moment and the whole goes back, while other writers are
// kept out; where that fails it stays pending, shows in every read, and goes out
// with the next change that succeeds.
//
// A file that is there but cannot be read as settings - too large, binary, no INI
// text at all - counts as empty and is never replaced. Names of sections and keys
// are the same in any case of ASCII letters. Comments and foreign lines stay.
class IniConfig : public Config {
 public:
  // An empty path: values live in memory only.
  explicit IniConfig(std::filesystem::path file);
  ~IniConfig() override;

  int ReadInt(std::string_view section, std::string_view key, int fallback) const override;
  std::int64_t ReadInt64(std::string_view section, std::string_view key,
                         std::int64_t fallback) const override;
  double ReadDouble(std::string_view section, std::string_view key, double fallback) const override;
  bool ReadBool(std::string_view section, std::string_view key, bool fallback) const override;
  std::wstring ReadString(std::string_view section, std::string_view key,
                          std::wstring_view fallback) const override;

  void WriteInt(std::string_view section, std::string_view key, int value) override;
  void WriteInt64(std::string_view section, std::string_view key, std::int64_t value) override;
  void WriteString(std::string_view section, std::string_view key,
                   std::wstring_view value) override;
  void DeleteValue(std::string_view section, std::string_view key) override;

  std::filesystem::path File() const override { return m_file; }

 private:
  using Name = std::pair<std::string, std::string>;  // encoded section and key

  std::optional<std::string> Stored(std::string_view section, std::string_view key) const;
  // No value: the key is deleted.
  void Change(std::string_view section, std::string_view key, std::optional<std::string> stored);
  void Flush();
  bool PutPending(IniText& text) const;

  const std::filesystem::path m_file;
  mutable std::mutex m_mutex;  // of everything below
  std::unique_ptr<IniText> m_text;
  std::map<Name, std::optional<std::string>> m_pending;
};

}  // namespace korin::settings
