#include "platform/fault.h"

namespace korin::platform {

std::atomic<FaultHook> g_faultHook{nullptr};
std::atomic<const Overrides*> g_overrides{nullptr};

}  // namespace korin::platform
