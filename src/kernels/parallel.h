#pragma once

#include <cstdint>
#include <type_traits>
#include <utility>

#include "korinimage/threads.h"

// One thread pool for everything: the loops here and the pipelines' rows.
namespace korin {

namespace detail {
using LoopBody = void (*)(void* context, std::int64_t index);
void RunParallel(std::int64_t count, LoopBody body, void* context);
}  // namespace detail

// Calls body(i) for 0 <= i < count, on any thread of the pool and in any order,
// and returns when all calls are done. May be used inside itself. When calls
// throw, calls not yet begun are left out and one of the exceptions is rethrown.
template <typename Body>
void ParallelFor(std::int64_t count, Body&& body) {
  using Plain = std::remove_reference_t<Body>;
  detail::RunParallel(
      count, [](void* context, std::int64_t i) { (*static_cast<Plain*>(context))(i); },
      const_cast<void*>(static_cast<const void*>(&body)));
}

// Tells the pipelines' runtime how to run loops and on how many threads; for
// EnsureKernelRuntime.
void PrepareParallelLoops();

}  // namespace korin
