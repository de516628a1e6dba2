#include "failing_heap.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> g_armed{false};
std::atomic<bool> g_stays{false};
std::atomic<int> g_left{0};

bool Fails() {
  if (!g_armed.load(std::memory_order_relaxed)) return false;
  const int left = --g_left;
  return left == 0 || (left < 0 && g_stays);
}

void* Allocate(std::size_t size) { return Fails() ? nullptr : std::malloc(size == 0 ? 1 : size); }

}  // namespace

void* operator new(std::size_t size) {
  void* const made = Allocate(size);
  if (made == nullptr) throw std::bad_alloc();
  return made;
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

namespace korin::test {

HeapFaultAt::HeapFaultAt(int n, bool stays) {
  g_left = n;
  g_stays = stays;
  g_armed = true;
}
HeapFaultAt::~HeapFaultAt() { g_armed = false; }

bool HeapFaultAt::Happened() { return g_left <= 0; }

}  // namespace korin::test
