#pragma once

#include <filesystem>
#include <optional>

// Where the user's own files belong, and the environment. Paths are native, never
// converted. Both may be called from any thread as long as nobody changes the
// environment meanwhile.
namespace korin::platform {

// The value of an environment variable as a path; none when it is unset or empty.
std::optional<std::filesystem::path> EnvironmentPath(const char* name);

// The folder for settings of the user, which need not exist: on POSIX
// $XDG_CONFIG_HOME when that is absolute, else .config in the home folder ($HOME,
// else what the user database says); on Windows the roaming application data
// folder. Empty when the system names none.
std::filesystem::path UserConfigFolder();

}  // namespace korin::platform
