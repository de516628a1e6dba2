#pragma once

#include "korinimage/export.h"

// Version of the headers an application was built with.
#define KORINIMAGE_VERSION "0.1.0"

namespace korin {

// Version of the library that is running, "major.minor.patch".
KORINIMAGE_API const char* Version() noexcept;

}  // namespace korin
