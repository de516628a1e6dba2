#pragma once

namespace korin::platform {

// Minutes to add to the standard time of the system's zone to get UTC (negative
// east of Greenwich), as of the current year; daylight saving does not count. 0
// when the system does not know its zone. The zone is read afresh at each call
// (on POSIX from TZ). Throws nothing; safe from any thread, as long as none changes
// the environment meanwhile.
int StandardBiasMinutes() noexcept;

}  // namespace korin::platform
