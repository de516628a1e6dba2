#include "kernels/runtime_setup.h"

#include <HalideRuntime.h>

#include <algorithm>
#include <cstdio>

#include "kernels/parallel.h"
#include "kernels/scratch_cache.h"

namespace korin {
namespace {

// The runtime's own handler would abort. One write, so that lines of several threads
// stay whole, and nothing from the heap, which may be what the message is about.
void ReportError(void*, const char* message) {
  char line[1024];
  int length = std::snprintf(line, sizeof line - 1, "korinimage: pixel kernel: %s", message);
  length = std::clamp(length, 0, static_cast<int>(sizeof line) - 2);
  while (length > 0 && line[length - 1] == '\n') --length;
  line[length++] = '\n';
  std::fwrite(line, 1, static_cast<std::size_t>(length), stderr);
}

void* TakeScratch(void*, std::size_t bytes) { return ScratchCache::Process().Take(bytes); }
void GiveScratch(void*, void* scratch) { ScratchCache::Process().Give(scratch); }

}  // namespace

void EnsureKernelRuntime() {
  static const bool prepared = [] {
    halide_set_error_handler(ReportError);
    halide_set_custom_malloc(TakeScratch);
    halide_set_custom_free(GiveScratch);
    PrepareParallelLoops();
    return true;
  }();
  (void)prepared;
}

}  // namespace korin
