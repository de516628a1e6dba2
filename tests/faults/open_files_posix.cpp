#include <filesystem>
#include <iterator>

#include "open_files.h"

namespace korin::test {

int OpenFiles() {
  const std::filesystem::directory_iterator files("/proc/self/fd");
  return static_cast<int>(std::distance(begin(files), end(files)));
}

}  // namespace korin::test
