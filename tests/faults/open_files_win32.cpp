#include <windows.h>

#include "open_files.h"

namespace korin::test {

int OpenFiles() {
  DWORD count = 0;
  return GetProcessHandleCount(GetCurrentProcess(), &count) == 0 ? -1 : static_cast<int>(count);
}

}  // namespace korin::test
