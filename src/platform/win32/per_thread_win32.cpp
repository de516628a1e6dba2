#include "platform/per_thread.h"

#include "platform/win32/windows_api.h"

namespace korin::platform {

namespace {

VOID WINAPI Free(PVOID own) { HeapFree(GetProcessHeap(), 0, own); }

}  // namespace

ThreadSlot::ThreadSlot() : m_index(FlsAlloc(Free)) {
  if (m_index == FLS_OUT_OF_INDEXES) throw std::bad_alloc();
}

// The system frees what the slot's threads have.
ThreadSlot::~ThreadSlot() { FlsFree(m_index); }

void* ThreadSlot::Get() const noexcept { return FlsGetValue(m_index); }

void* ThreadSlot::Make(std::size_t bytes) const {
  void* const own = HeapAlloc(GetProcessHeap(), 0, bytes);
  if (own == nullptr) throw std::bad_alloc();
  if (FlsSetValue(m_index, own) == 0) {
    Free(own);
    throw std::bad_alloc();
  }
  return own;
}

}  // namespace korin::platform
