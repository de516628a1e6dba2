#include "vm/paging_lock.h"

#include <utility>
#include <vector>

#include "platform/process.h"

namespace korin::vm {

namespace {

thread_local PagingLock* t_innermost = nullptr;
thread_local bool t_hasLines = false;

std::vector<std::string>& Lines() {
  thread_local std::vector<std::string> lines;
  return lines;
}

void WriteLines() {
  t_hasLines = false;
  for (const std::string& line : std::exchange(Lines(), {})) platform::WriteErrorLine(line);
}

}  // namespace

PagingLock::PagingLock(std::recursive_mutex& mutex) : m_mutex(mutex) {
  m_mutex.lock();
  m_outer = std::exchange(t_innermost, this);
}

PagingLock::~PagingLock() {
  t_innermost = m_outer;
  m_mutex.unlock();
  if (m_outer == nullptr && t_hasLines) WriteLines();
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
  Lines().push_back(std::move(line));
  t_hasLines = true;
  if (t_innermost == nullptr) WriteLines();
}

PagingFailure& LastPagingFailure() {
  thread_local PagingFailure failure;
  return failure;
}

}  // namespace korin::vm
