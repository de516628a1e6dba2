#include "settings/ini_config.h"

#include <algorithm>
#include <chrono>
#include <limits>

#include "platform/atomic_file.h"
#include "settings/ini_text.h"
#include "settings/value_text.h"

namespace korin::settings {

namespace {

constexpr std::size_t kMaxFileBytes = 1 << 20;
constexpr auto kPatience = std::chrono::seconds(3);

struct Loaded {
  std::unique_ptr<IniText> text;
  bool replaceable;
};

Loaded Load(const std::filesystem::path& file) {
  Loaded loaded{std::make_unique<IniText>(), false};
  if (file.empty()) return loaded;
  const platform::SmallFile bytes = platform::ReadSmallFile(file, kMaxFileBytes);
  loaded.replaceable =
      bytes.state == platform::FileState::kAbsent ||
      (bytes.state == platform::FileState::kRead && loaded.text->Load(bytes.bytes));
  return loaded;
}

}  // namespace

IniConfig::IniConfig(std::filesystem::path file)
    : m_file(std::move(file)), m_text(Load(m_file).text) {}

IniConfig::~IniConfig() = default;

std::optional<std::string> IniConfig::Stored(std::string_view section, std::string_view key) const {
  const std::lock_guard lock(m_mutex);
  return m_text->Get(EncodeSection(section), EncodeKey(key));
}

int IniConfig::ReadInt(std::string_view section, std::string_view key, int fallback) const {
  using Limits = std::numeric_limits<int>;
  const std::int64_t value = ReadInt64(section, key, fallback);
  return static_cast<int>(std::clamp<std::int64_t>(value, Limits::min(), Limits::max()));
}

std::int64_t IniConfig::ReadInt64(std::string_view section, std::string_view key,
                                  std::int64_t fallback) const {
  const auto stored = Stored(section, key);
  return stored ? ParseInteger(*stored).value_or(fallback) : fallback;
}

double IniConfig::ReadDouble(std::string_view section, std::string_view key,
                             double fallback) const {
  const auto stored = Stored(section, key);
  return stored ? ParseDouble(*stored).value_or(fallback) : fallback;
}

bool IniConfig::ReadBool(std::string_view section, std::string_view key, bool fallback) const {
  const auto stored = Stored(section, key);
  return stored ? ParseBool(*stored).value_or(fallback) : fallback;
}

std::wstring IniConfig::ReadString(std::string_view section, std::string_view key,
                                   std::wstring_view fallback) const {
  const auto stored = Stored(section, key);
  return stored ? DecodeValue(*stored) : std::wstring(fallback);
}

void IniConfig::WriteInt(std::string_view section, std::string_view key, int value) {
  WriteInt64(section, key, value);
}

void IniConfig::WriteInt64(std::string_view section, std::string_view key, std::int64_t value) {
  Change(section, key, std::to_string(value));
}

void IniConfig::WriteString(std::string_view section, std::string_view key,
                            std::wstring_view value) {
  Change(section, key, EncodeValue(value));
}

void IniConfig::DeleteValue(std::string_view section, std::string_view key) {
  Change(section, key, std::nullopt);
}

void IniConfig::Change(std::string_view section, std::string_view key,
                       std::optional<std::string> stored) {
  const std::lock_guard lock(m_mutex);
  m_pending.insert_or_assign({EncodeSection(section), EncodeKey(key)}, std::move(stored));
  Flush();
}

bool IniConfig::PutPending(IniText& text) const {
  bool changed = false;
  for (const auto& [name, stored] : m_pending) {
    const auto& [section, key] = name;
    changed |= stored ? text.Set(section, key, *stored) : text.Remove(section, key);
  }
  return changed;
}

void IniConfig::Flush() {
  Loaded now = Load(m_file);
  bool written = now.replaceable;
  if (PutPending(*now.text) && now.replaceable) {
    // Another process may have come in between: the look that counts is the one
    // under the lock.
    const auto lock = platform::ReplaceLock::Acquire(m_file, kPatience);
    if (lock) {
      now = Load(m_file);
      const bool changed = PutPending(*now.text);
      written = now.replaceable && (!changed || lock->Replace(now.text->Save()));
    } else {
      written = false;
    }
  }
  m_text = std::move(now.text);
  if (written) m_pending.clear();
}

}  // namespace korin::settings
