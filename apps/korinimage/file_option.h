#pragma once

#include <CLI/App.hpp>
#include <filesystem>
#include <string>

namespace korin::app {

// An option or positional argument that names a file or folder, in any characters.
CLI::Option* AddFileOption(CLI::App& command, const std::string& name, std::filesystem::path& file,
                           const std::string& description);

}  // namespace korin::app
