#pragma once

#include <cstddef>
#include <new>
#include <type_traits>

namespace korin::platform {

#if defined(_WIN32)
// A pointer for each thread to memory of its own, which goes with the thread or, for all
// threads, with the slot. Throws std::bad_alloc where the system has no more slots.
class ThreadSlot {
 public:
  ThreadSlot();
  ThreadSlot(const ThreadSlot&) = delete;
  ThreadSlot& operator=(const ThreadSlot&) = delete;
  ~ThreadSlot();
  void* Get() const noexcept;  // null at first
  void* Make(std::size_t bytes) const;

 private:
  unsigned m_index;
};
#endif

// The calling thread's own object of its type, made at the thread's first call. It needs no
// destructor, and nothing of it is left behind when the library is unloaded before the
// thread ends. The compiler's own thread-local variables do that only where they are not
// emulated: emulated ones stay with the thread, one more for each load of the library.
// Throws std::bad_alloc at a first call.
template <typename T>
T& PerThread() {
  static_assert(std::is_trivially_destructible_v<T>);
#if defined(_WIN32)
  static const ThreadSlot slot;
  if (void* const own = slot.Get()) return *static_cast<T*>(own);
  return *::new (slot.Make(sizeof(T))) T;
#else
  thread_local T own;
  return own;
#endif
}

}  // namespace korin::platform
