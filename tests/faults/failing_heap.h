#pragma once

namespace korin::test {

// Makes the n-th allocation of C++ code on any thread fail, once or from then on, for
// as long as it lives.
class HeapFaultAt {
 public:
  HeapFaultAt(int n, bool stays);
  ~HeapFaultAt();
  HeapFaultAt(const HeapFaultAt&) = delete;
  HeapFaultAt& operator=(const HeapFaultAt&) = delete;
  static bool Happened();
};

}  // namespace korin::test
