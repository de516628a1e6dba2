#include "platform/keeper.h"

#include <pthread.h>

namespace korin::platform {

bool StartKeeper(void (*)()) noexcept { return false; }

void AroundForks(void (*before)(), void (*after)()) noexcept {
  pthread_atfork(before, after, after);
}

}  // namespace korin::platform
