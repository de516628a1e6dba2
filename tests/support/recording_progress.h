#pragma once

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "korinimage/progress.h"

namespace korin::test {

struct SinkError : std::runtime_error {
  SinkError() : std::runtime_error("the sink threw") {}
};

// A sink that keeps every call as text ("initialize", "update 50", "finalize",
// "message ...", "escape") and can throw SinkError at a chosen call.
class RecordingProgress : public Progress {
 public:
  void initialize() override { Note("initialize"); }
  void update(int percent) override {
    updates.push_back(percent);
    Note("update " + std::to_string(percent));
  }
  void finalize() override { Note("finalize"); }
  void message(const std::wstring& text) override {
    std::string ascii;
    for (const wchar_t c : text) ascii += c < 0x80 ? static_cast<char>(c) : '?';
    Note("message " + ascii);
  }
  bool escape() override {
    Note("escape");
    return cancel;
  }

  int Count(const std::string& call) const {
    int n = 0;
    for (const std::string& c : calls) n += c == call ? 1 : 0;
    return n;
  }

  std::vector<std::string> calls;
  std::vector<int> updates;    // the percentages alone
  int throwAt = -1;            // index of the call that throws, -1: none
  bool cancel = false;         // what escape answers
  bool foreignThread = false;  // a call came from another thread than the first

 private:
  void Note(std::string call) {
    if (std::this_thread::get_id() != m_thread) foreignThread = true;
    calls.push_back(std::move(call));
    if (static_cast<int>(calls.size()) - 1 == throwAt) throw SinkError();
  }

  std::thread::id m_thread = std::this_thread::get_id();
};

}  // namespace korin::test
