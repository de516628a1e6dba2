#include "kernels/runtime_setup.h"

#include <HalideRuntime.h>

#include <cstdio>
#include <string>

#include "kernels/parallel.h"
#include "kernels/scratch_cache.h"

namespace korin {
namespace {

// The runtime's own handler would abort. One write, so that lines of several
// threads stay whole.
void ReportError(void*, const char* message) {
  std::string line = "korinimage: pixel kernel: ";
  line += message;
  while (!line.empty() && line.back() == '\n') line.pop_back();
  line += '\n';
  std::fwrite(line.data(), 1, line.size(), stderr);
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
