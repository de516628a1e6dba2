#include "vm/paging_lock.h"

#include <type_traits>
#include <utility>

#include "platform/process.h"

namespace korin::vm {

namespace {

thread_local PagingLock* t_innermost = nullptr;

}  // namespace

PagingLock::PagingLock(std::recursive_mutex& mutex) : m_mutex(mutex) {
  m_mutex.lock();
  m_outer = std::exchange(t_innermost, this);
}

PagingLock::~PagingLock() {
  t_innermost = m_outer;
  m_mutex.unlock();
  for (const std::string& line : m_lines) platform::WriteErrorLine(line);
}

bool PagingLock::Wait(std::condition_variable_any& signal,
                      std::chrono::steady_clock::time_point deadline) {
  int outer = 0;
  for (const PagingLock* lock = m_outer; lock != nullptr; lock = lock->m_outer, ++outer) {
    if (&lock->m_mutex != &m_mutex) return false;
  }
  for (int i = 0; i < outer; ++i) m_mutex.unlock();
  signal.wait_until(m_mutex, deadline);
  for (int i = 0; i < outer; ++i) m_mutex.lock();
  return true;
}

void PagingLock::Say(std::string line) {
  PagingLock* outermost = t_innermost;
  if (outermost == nullptr) return platform::WriteErrorLine(line);
  while (outermost->m_outer != nullptr) outermost = outermost->m_outer;
  outermost->m_lines.push_back(std::move(line));
}

static_assert(std::is_trivially_destructible_v<PagingFailure>);

PagingFailure& LastPagingFailure() {
  thread_local PagingFailure failure;
  return failure;
}

}  // namespace korin::vm
