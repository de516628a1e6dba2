#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "korinimage/config.h"

namespace korin::app {

// The user's settings as one run of the command sees them: the disk limit may be
// overridden, and what a manager notes down about itself is not kept, so that
// looking at a picture never rewrites the settings file. Everything else goes to
// the store below.
class CommandConfig : public Config {
 public:
  CommandConfig(std::shared_ptr<Config> store, std::optional<std::int64_t> maxDiskMib);
  ~CommandConfig() override;

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
  std::filesystem::path File() const override;

 private:
  bool IsOverridden(std::string_view section, std::string_view key) const;

  std::shared_ptr<Config> m_store;
  std::optional<std::int64_t> m_maxDiskMib;
};

}  // namespace korin::app
