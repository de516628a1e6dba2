#include "platform/time_zone.h"

#include "platform/win32/windows_api.h"

namespace korin::platform {

int StandardBiasMinutes() noexcept {
  TIME_ZONE_INFORMATION zone;
  if (GetTimeZoneInformation(&zone) == TIME_ZONE_ID_INVALID) return 0;
  return static_cast<int>(zone.Bias);
}

}  // namespace korin::platform
