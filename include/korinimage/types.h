#pragma once

#include <cstdint>

// Names of the host window system and of FITS metadata that the interface
// shares. The handle types are declared exactly as the Windows headers declare
// them, so that both may be included in one translation unit; on other systems
// they are opaque values made by message_window.h and global_memory.h.

using BYTE = unsigned char;

struct HWND__;
using HWND = HWND__*;  // a receiver of window messages; null: none

using HDIB = void*;  // a movable global-memory block holding a packed bitmap

// A rational value of camera metadata. (-1, 1) means "not set".
struct tagFRational {
  double numerator = -1.0;
  double denominator = 1.0;

  friend bool operator==(const tagFRational&, const tagFRational&) = default;
};

// A calendar date and time (Gregorian calendar).
struct tagADATE {
  std::int32_t year = 0;
  std::int32_t month = 0;   // 1-12
  std::int32_t day = 0;     // 1-31
  std::int32_t hour = 0;    // 0-23
  std::int32_t minute = 0;  // 0-59
  double second = 0.0;      // with fraction
  double timezone = 0.0;    // offset from UTC in hours, 0 for UTC
};
