#include "platform/fault.h"

namespace korin::platform {

std::atomic<FaultHook> g_faultHook{nullptr};

}  // namespace korin::platform
