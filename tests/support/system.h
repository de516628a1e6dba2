#pragma once

// What tests must know of the system below: where an interface passes the system's
// own objects through, its limits and its checks are the system's.
namespace korin::test {

#if defined(_WIN32)
inline constexpr bool kWindows = true;
#else
inline constexpr bool kWindows = false;
#endif

}  // namespace korin::test
