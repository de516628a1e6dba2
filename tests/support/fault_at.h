#pragma once

#include <atomic>
#include <initializer_list>

#include "platform/fault.h"

namespace korin::test {

// Makes the n-th of the chosen calls to the system fail, once or from then on.
class FaultAt {
 public:
  FaultAt(int n, platform::Fault fault, bool stays = false,
          std::initializer_list<platform::Call> calls = {}) {  // none: every call
    s_left = n;
    s_fault = fault;
    s_stays = stays;
    s_calls = calls.size() == 0 ? ~0U : 0;
    for (const platform::Call call : calls) s_calls |= 1U << static_cast<unsigned>(call);
    platform::g_faultHook = &Answer;
  }
  FaultAt(const FaultAt&) = delete;
  FaultAt& operator=(const FaultAt&) = delete;
  ~FaultAt() { platform::g_faultHook = nullptr; }

  static bool Happened() { return s_left <= 0; }

 private:
  static platform::Fault Answer(platform::Call call) {
    if ((s_calls >> static_cast<unsigned>(call) & 1U) == 0) return platform::Fault::kNone;
    const int left = --s_left;
    return left == 0 || (left < 0 && s_stays) ? s_fault : platform::Fault::kNone;
  }

  static inline std::atomic<int> s_left{0};
  static inline platform::Fault s_fault{};
  static inline bool s_stays = false;
  static inline unsigned s_calls = 0;
};

}  // namespace korin::test
