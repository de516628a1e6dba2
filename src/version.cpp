#include "korinimage/version.h"

namespace korin {

const char* Version() noexcept { return KORINIMAGE_VERSION; }

}  // namespace korin
