#include "platform/volume.h"

#include <limits>
#include <system_error>

#include "platform/fault.h"

namespace korin::platform {

std::int64_t AvailableBytes(const std::filesystem::path& folder) {
  if (AskFault(Call::kQueryVolume) == Fault::kIoError) {
    throw std::filesystem::filesystem_error("space", folder,
                                            std::make_error_code(std::errc::io_error));
  }
  if (CurrentOverrides().freeBytes >= 0) return CurrentOverrides().freeBytes;
  const std::uintmax_t bytes = std::filesystem::space(folder).available;
  constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
  return bytes > static_cast<std::uintmax_t>(kMost) ? kMost : static_cast<std::int64_t>(bytes);
}

}  // namespace korin::platform
