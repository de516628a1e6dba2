#include "platform/time_zone.h"

#include <time.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <optional>

namespace korin::platform {

namespace {

// Seconds east of UTC at noon (UTC) of a day.
std::optional<long> OffsetAt(std::chrono::sys_days day) {
  const auto noon = std::chrono::sys_seconds(day) + std::chrono::hours(12);
  const auto seconds = static_cast<time_t>(noon.time_since_epoch().count());
  tm local = {};
  if (localtime_r(&seconds, &local) == nullptr) return std::nullopt;
  return local.tm_gmtoff;
}

}  // namespace

// The smaller of the offsets in January and July is the standard one on both
// hemispheres, and also where winter is marked as the saving time.
int StandardBiasMinutes() noexcept {
  static std::mutex mutex;  // tzset changes state of the process
  const std::lock_guard lock(mutex);
  tzset();
  const auto today = std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now());
  const std::chrono::year year = std::chrono::year_month_day(today).year();
  const auto january = OffsetAt(year / 1 / 1);
  const auto july = OffsetAt(year / 7 / 1);
  if (!january || !july) return 0;
  return static_cast<int>(-std::min(*january, *july) / 60);
}

}  // namespace korin::platform
