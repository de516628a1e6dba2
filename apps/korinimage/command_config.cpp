#include "command_config.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace korin::app {

namespace {

constexpr std::string_view kSection = "VMManager";

// The budget that a manager computed for itself.
bool IsNote(std::string_view section, std::string_view key) {
  return section == kSection && key == "AcquiredMemory";
}

}  // namespace

CommandConfig::CommandConfig(std::shared_ptr<Config> store, std::optional<std::int64_t> maxDiskMib)
    : m_store(std::move(store)), m_maxDiskMib(maxDiskMib) {}

CommandConfig::~CommandConfig() = default;

bool CommandConfig::IsOverridden(std::string_view section, std::string_view key) const {
  return m_maxDiskMib && section == kSection && key == "MaxDiskSize";
}

int CommandConfig::ReadInt(std::string_view section, std::string_view key, int fallback) const {
  if (IsOverridden(section, key)) {
    return static_cast<int>(std::min<std::int64_t>(*m_maxDiskMib, std::numeric_limits<int>::max()));
  }
  return m_store->ReadInt(section, key, fallback);
}

std::int64_t CommandConfig::ReadInt64(std::string_view section, std::string_view key,
                                      std::int64_t fallback) const {
  if (IsOverridden(section, key)) return *m_maxDiskMib;
  return m_store->ReadInt64(section, key, fallback);
}

double CommandConfig::ReadDouble(std::string_view section, std::string_view key,
                                 double fallback) const {
  return m_store->ReadDouble(section, key, fallback);
}

bool CommandConfig::ReadBool(std::string_view section, std::string_view key, bool fallback) const {
  return m_store->ReadBool(section, key, fallback);
}

std::wstring CommandConfig::ReadString(std::string_view section, std::string_view key,
                                       std::wstring_view fallback) const {
  return m_store->ReadString(section, key, fallback);
}

void CommandConfig::WriteInt(std::string_view section, std::string_view key, int value) {
  if (!IsNote(section, key)) m_store->WriteInt(section, key, value);
}

void CommandConfig::WriteInt64(std::string_view section, std::string_view key, std::int64_t value) {
  if (!IsNote(section, key)) m_store->WriteInt64(section, key, value);
}

void CommandConfig::WriteString(std::string_view section, std::string_view key,
                                std::wstring_view value) {
  if (!IsNote(section, key)) m_store->WriteString(section, key, value);
}

void CommandConfig::DeleteValue(std::string_view section, std::string_view key) {
  m_store->DeleteValue(section, key);
}

std::filesystem::path CommandConfig::File() const { return m_store->File(); }

}  // namespace korin::app
