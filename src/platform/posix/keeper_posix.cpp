#include "platform/keeper.h"

namespace korin::platform {

bool StartKeeper(void (*)()) noexcept { return false; }

}  // namespace korin::platform
