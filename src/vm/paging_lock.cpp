#include "vm/paging_lock.h"

#include <utility>

#include "platform/per_thread.h"
#include "platform/process.h"

namespace korin::vm {

namespace {

struct Innermost {
  PagingLock* lock = nullptr;
};

PagingLock*& InnermostLock() { return platform::PerThread<Innermost>().lock; }

}  // namespace

PagingLock::PagingLock(std::recursive_mutex& mutex) : m_mutex(mutex) {
  PagingLock*& innermost = InnermostLock();
  m_mutex.lock();
  m_outer = std::exchange(innermost, this);
}

PagingLock::~PagingLock() {
  InnermostLock() = m_outer;
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
  PagingLock* outermost = InnermostLock();
  if (outermost == nullptr) return platform::WriteErrorLine(line);
  while (outermost->m_outer != nullptr) outermost = outermost->m_outer;
  outermost->m_lines.push_back(std::move(line));
}

PagingFailure& LastPagingFailure() { return platform::PerThread<PagingFailure>(); }

}  // namespace korin::vm
