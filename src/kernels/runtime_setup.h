#pragma once

namespace korin {

// Prepares the pipelines' runtime, once: errors become one line on standard error
// and a code instead of the end of the process, scratch memory is reused, and
// parallel loops know the thread count. Called before every pipeline and loop.
void EnsureKernelRuntime();

}  // namespace korin
