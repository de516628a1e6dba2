#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
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

void WaitMilliseconds(int milliseconds) { usleep(static_cast<useconds_t>(milliseconds) * 1000); }

}  // namespace korin::test
