#pragma once

#include <stdexcept>

namespace korin::app {

// Thrown through an operation that the user stopped.
class Interrupted : public std::exception {
 public:
  explicit Interrupted(int signal) : m_signal(signal) {}
  const char* what() const noexcept override { return "interrupted"; }
  int Signal() const { return m_signal; }

 private:
  int m_signal;
};

// From now on the signals that ask a process to end only leave a note, so that the
// command unwinds and removes its swap file and half-written output; a broken pipe
// and a file beyond the size limit become errors of the write that met them.
void WatchForInterrupts();

// Whether the user asked to stop.
bool WasInterrupted() noexcept;
// Throws Interrupted if so.
void CheckInterrupt();

}  // namespace korin::app
