#include "platform/user_folders.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

namespace korin::platform {

namespace {

std::filesystem::path HomeFolder() {
  const auto home = EnvironmentPath("HOME");
  if (home && home->is_absolute()) return *home;
  std::vector<char> buffer(1024);
  passwd entry{};
  passwd* found = nullptr;
  int result = 0;
  while ((result = ::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found)) ==
             ERANGE &&
         buffer.size() < (1U << 20)) {
    buffer.resize(buffer.size() * 2);
  }
  if (result != 0 || found == nullptr || found->pw_dir == nullptr || *found->pw_dir != '/') {
    return {};
  }
  return found->pw_dir;
}

}  // namespace

std::optional<std::filesystem::path> EnvironmentPath(const char* name) {
  const char* const value = std::getenv(name);
  if (value == nullptr || *value == '\0') return std::nullopt;
  return std::filesystem::path(value);
}

std::filesystem::path UserConfigFolder() {
  const auto configured = EnvironmentPath("XDG_CONFIG_HOME");
  if (configured && configured->is_absolute()) return *configured;
  const std::filesystem::path home = HomeFolder();
  return home.empty() ? home : home / ".config";
}

}  // namespace korin::platform
