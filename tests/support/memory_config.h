#pragma once

#include <memory>

#include "korinimage/config.h"

namespace korin::test {

// Installs empty settings for as long as it lives, kept in memory: tests must not
// touch the user's file.
class ScopedMemoryConfig {
 public:
  explicit ScopedMemoryConfig(std::shared_ptr<Config> config = Config::OpenFile({}))
      : m_config(std::move(config)) {
    Config::SetDefaultConfig(m_config);
  }
  ~ScopedMemoryConfig() { Config::SetDefaultConfig(nullptr); }
  ScopedMemoryConfig(const ScopedMemoryConfig&) = delete;
  ScopedMemoryConfig& operator=(const ScopedMemoryConfig&) = delete;

  Config* operator->() const { return m_config.get(); }

 private:
  std::shared_ptr<Config> m_config;
};

}  // namespace korin::test
