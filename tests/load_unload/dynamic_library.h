#pragma once

namespace korin::test {

// A shared library loaded at run time, and what of it is left in the process.
void* LoadLibraryAt(const char* path);  // null: it does not load
void* FindSymbol(void* library, const char* name);
bool UnloadLibrary(void* library);
bool IsLibraryLoaded(const char* fileName);
int CountThreads();  // of this process
void WaitMilliseconds(int milliseconds);

}  // namespace korin::test
