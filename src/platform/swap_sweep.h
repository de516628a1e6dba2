#pragma once

#include <filesystem>
#include <string_view>

namespace korin::platform {

// Removes what ended processes left in `folder`: swap files "~QV" + something +
// ".tmp", and swap folders "~QV." + something with their contents. Spares what
// a living process holds, what belongs to another user and what is neither a file
// nor a folder; a symbolic link is removed itself and never followed. Skips every
// failure and never throws.
void SweepSwapFiles(const std::filesystem::path& folder) noexcept;

// The two kinds of names that a sweep takes, compared whole.
enum class SwapName { kOther, kFile, kFolder };

// A name that fits both is a file.
constexpr SwapName ClassifySwapName(std::string_view name) {
  constexpr std::string_view kPrefix = "~QV";
  constexpr std::string_view kSuffix = ".tmp";
  if (name.substr(0, kPrefix.size()) != kPrefix) return SwapName::kOther;
  const std::string_view rest = name.substr(kPrefix.size());
  if (rest.find('\n') != rest.npos || rest.find('\r') != rest.npos) return SwapName::kOther;
  if (rest.size() > kSuffix.size() && rest.substr(rest.size() - kSuffix.size()) == kSuffix) {
    return SwapName::kFile;
  }
  return rest.size() > 1 && rest[0] == '.' ? SwapName::kFolder : SwapName::kOther;
}

}  // namespace korin::platform
