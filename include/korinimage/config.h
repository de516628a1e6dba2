#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "korinimage/export.h"

namespace korin {

// The application's settings: values by section and key.
//
// The default store is an INI file in UTF-8: the file named by the environment
// variable KORINIMAGE_CONFIG, else korinimage/korinimage.ini in the user's
// configuration folder. A value is read from memory; every write replaces the
// file atomically, after taking over what other processes wrote meanwhile. A
// file that cannot be read counts as empty, one that cannot be written keeps the
// change in memory only: settings never stop the library.
//
// Thread rule: every member may be called from any thread. None throws, except
// std::bad_alloc.
class KORINIMAGE_API Config {
 public:
  // The process-wide settings object; never null.
  static std::shared_ptr<Config> DefaultConfig();
  // Replaces the process-wide object (an application with a store of its own, or
  // a test); an empty pointer goes back to the INI file, read afresh.
  static void SetDefaultConfig(std::shared_ptr<Config> config);
  // A store on the given INI file; with an empty path, one that lives in memory only.
  static std::shared_ptr<Config> OpenFile(const std::filesystem::path& file);

  Config() = default;
  Config(const Config&) = delete;
  Config& operator=(const Config&) = delete;
  virtual ~Config();

  // Each returns `fallback` when the value is absent or does not parse as a whole.
  // Integers out of range saturate. Booleans: 0/1, true/false, yes/no, on/off.
  virtual int ReadInt(std::string_view section, std::string_view key, int fallback) const = 0;
  virtual std::int64_t ReadInt64(std::string_view section, std::string_view key,
                                 std::int64_t fallback) const = 0;
  virtual double ReadDouble(std::string_view section, std::string_view key,
                            double fallback) const = 0;
  virtual bool ReadBool(std::string_view section, std::string_view key, bool fallback) const = 0;
  virtual std::wstring ReadString(std::string_view section, std::string_view key,
                                  std::wstring_view fallback) const = 0;

  virtual void WriteInt(std::string_view section, std::string_view key, int value) = 0;
  virtual void WriteInt64(std::string_view section, std::string_view key, std::int64_t value) = 0;
  virtual void WriteString(std::string_view section, std::string_view key,
                           std::wstring_view value) = 0;
  virtual void DeleteValue(std::string_view section, std::string_view key) = 0;

  // Where the values are kept, for messages; empty for a store without a file.
  virtual std::filesystem::path File() const;
};

}  // namespace korin

// Reads single integers from the process-wide settings.
class KORINIMAGE_API CRegistry {
 public:
  // The value of `key` in `section`, or `fallback` when it is absent or broken.
  // Never throws.
  static int Read(std::string_view section, std::string_view key, int fallback = 0) noexcept;
};
