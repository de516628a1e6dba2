#pragma once

#include <cstdint>

namespace korin::test {

// A shared library loaded at run time, and what of it is left in the process.
void* LoadLibraryAt(const char* path);  // null: it does not load
void* FindSymbol(void* library, const char* name);
bool UnloadLibrary(void* library);
bool IsLibraryLoaded(const char* fileName);
int CountThreads();  // of this process
// What the compiler's runtime itself leaves on the heap each time: where it makes the
// locks of static mutexes there, those, since nothing ever ends them.
extern const std::int64_t kRuntimeKeeps;
std::int64_t HeapBytes();    // in use
std::int64_t MappedBytes();  // of memory, the heap's own included
void WaitMilliseconds(int milliseconds);

}  // namespace korin::test
