#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace korin::test {

// Sets an environment variable (null: removes it) until the end of the scope.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const char* value) : m_name(name) {
    if (const char* const former = std::getenv(name)) m_former = former;
    Set(value);
  }
  ~ScopedVariable() { Set(m_former ? m_former->c_str() : nullptr); }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  void Set(const char* value) const {
#ifdef _WIN32
    _putenv_s(m_name, value == nullptr ? "" : value);  // an empty value removes the variable
#else
    value == nullptr ? unsetenv(m_name) : setenv(m_name, value, 1);
#endif
  }

  const char* m_name;
  std::optional<std::string> m_former;
};

}  // namespace korin::test
