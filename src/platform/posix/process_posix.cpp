#include "platform/process.h"

#include <sys/resource.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "platform/fault.h"

namespace korin::platform {

std::int64_t ProcessId() { return getpid(); }

bool IsWow64() { return CurrentOverrides().isWow64 == 1; }

std::int64_t FileSizeLimit() {
  constexpr std::int64_t kNone = std::numeric_limits<std::int64_t>::max();
  if (CurrentOverrides().fileSizeLimit >= 0) return CurrentOverrides().fileSizeLimit;
  rlimit limit{};
  if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return kNone;
  return limit.rlim_cur > static_cast<rlim_t>(kNone) ? kNone
                                                     : static_cast<std::int64_t>(limit.rlim_cur);
}

void WriteErrorLine(std::string_view line) noexcept {
  char end = '\n';
  iovec parts[2] = {{const_cast<char*>(line.data()), line.size()}, {&end, 1}};
  while (writev(STDERR_FILENO, parts, 2) < 0 && errno == EINTR) {
  }
}

}  // namespace korin::platform
