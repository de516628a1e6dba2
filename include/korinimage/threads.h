#pragma once

#include "korinimage/export.h"

namespace korin {

// Threads that one whole-image operation may use, the caller's included. 0 goes
// back to the default: the environment variable HL_NUM_THREADS (or
// HL_NUMTHREADS), else the number of processors. Results do not depend on it.
// Not to be called while an operation runs.
KORINIMAGE_API void SetThreadCount(int threads);
KORINIMAGE_API int GetThreadCount();

}  // namespace korin
