#include "file_option.h"

#include "platform/text.h"

namespace korin::app {

CLI::Option* AddFileOption(CLI::App& command, const std::string& name, std::filesystem::path& file,
                           const std::string& description) {
  const auto take = [&file](const std::string& text) { file = platform::PathOf(text); };
  return command.add_option_function<std::string>(name, take, description);
}

}  // namespace korin::app
