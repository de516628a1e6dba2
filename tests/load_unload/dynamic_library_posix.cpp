#include <dlfcn.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "load_unload/dynamic_library.h"

namespace korin::test {

void* LoadLibraryAt(const char* path) {
  void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) std::fprintf(stderr, "%s\n", dlerror());
  return library;
}

void* FindSymbol(void* library, const char* name) { return dlsym(library, name); }

bool UnloadLibrary(void* library) { return dlclose(library) == 0; }

bool IsLibraryLoaded(const char* fileName) {
  void* const library = dlopen(fileName, RTLD_NOW | RTLD_NOLOAD);
  if (library != nullptr) dlclose(library);
  return library != nullptr;
}

int CountThreads() {
  const std::filesystem::directory_iterator threads("/proc/self/task");
  return static_cast<int>(std::distance(begin(threads), end(threads)));
}

const std::int64_t kRuntimeKeeps = 0;

std::int64_t HeapBytes() {
  const struct mallinfo2 heap = mallinfo2();
  return static_cast<std::int64_t>(heap.uordblks + heap.hblkhd);
}

std::int64_t MappedBytes() {
  std::int64_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages * sysconf(_SC_PAGESIZE);
}

void WaitMilliseconds(int milliseconds) { usleep(static_cast<useconds_t>(milliseconds) * 1000); }

}  // namespace korin::test
