#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "korinimage/exceptions.h"

namespace korin::vm {

// Holds a manager's mutex for one paging call, or for several that must be one
// step. Locks of one thread nest. Lines for standard error that come up meanwhile
// are written once the thread holds no lock any more.
class PagingLock {
 public:
  explicit PagingLock(std::recursive_mutex& mutex);
  PagingLock(const PagingLock&) = delete;
  PagingLock& operator=(const PagingLock&) = delete;
  ~PagingLock();

  // Gives the mutex up, all of this thread's levels of it, until `signal` or the
  // deadline, and takes it again. False, at once, when the thread holds the mutex
  // of another manager too: waiting then could block that one.
  bool Wait(std::condition_variable_any& signal, std::chrono::steady_clock::time_point deadline);

  // Queues a line for standard error; at once when the thread holds no lock.
  static void Say(std::string line);

 private:
  std::recursive_mutex& m_mutex;
  PagingLock* m_outer;
  std::vector<std::string> m_lines;  // of the outermost lock
};

// A text of bounded length that needs no destructor: one that belongs to a thread
// would keep the library loaded, or be left behind, when it is unloaded before the
// thread ends. What is too long is cut.
class FailureText {
 public:
  FailureText& operator=(std::string_view text) {
    m_size = text.copy(m_bytes, sizeof m_bytes);
    return *this;
  }
  void clear() { m_size = 0; }
  bool empty() const { return m_size == 0; }
  std::string str() const { return std::string(m_bytes, m_size); }

 private:
  std::size_t m_size = 0;
  char m_bytes[600] = {};
};

// Why the thread's last paging call failed, for the message of an exception. Empty
// when it did not, or when the manager is not the library's own.
struct PagingFailure {
  FailureText text;
  AllocationFigures figures;

  void Set(std::string_view what, const AllocationFigures& amounts) {
    text = what;
    figures = amounts;
  }
};
PagingFailure& LastPagingFailure();

}  // namespace korin::vm
