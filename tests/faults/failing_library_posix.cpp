// The calls through which CFITSIO and the streams of the standard library reach files,
// in front of the system's own: they ask the fault seam too. Definitions in a program
// come before those of every library that it loads.
#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/posix/file_calls.h"

namespace {

using korin::platform::Call;
using korin::platform::Fault;

template <typename Function>
Function* Next(Function*, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Sets errno as the system would.
bool Fails(Fault fault) {
  const int error = korin::platform::posix::ErrorOf(fault);
  if (error != 0) errno = error;
  return error != 0;
}

}  // namespace

extern "C" {

FILE* fopen64(const char* name, const char* mode) {
  static const auto next = Next(&fopen64, "fopen64");
  return Fails(AskFault(Call::kOpenFile)) ? nullptr : next(name, mode);
}

std::size_t fread(void* buffer, std::size_t size, std::size_t count, FILE* file) {
  static const auto next = Next(&fread, "fread");
  const Fault fault = AskFault(Call::kReadFile);
  if (Fails(fault)) return 0;
  return next(buffer, size, fault == Fault::kShort ? count / 2 : count, file);
}

ssize_t read(int file, void* buffer, std::size_t size) {
  static const auto next = Next(&read, "read");
  const Fault fault = AskFault(Call::kReadFile);
  if (fault == Fault::kInterrupted) errno = EINTR;
  if (fault == Fault::kInterrupted || Fails(fault)) return -1;
  return next(file, buffer, fault == Fault::kShort ? (size + 1) / 2 : size);
}
}
