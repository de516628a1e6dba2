#pragma once

#include <chrono>
#include <string>

#include "korinimage/progress.h"

namespace korin::app {

// Progress of one step of the command: a bar on standard error when that is a
// terminal, and everywhere the place where an interrupt stops the step.
class ProgressBar : public Progress {
 public:
  explicit ProgressBar(std::string label);
  ~ProgressBar() override;

  void initialize() override;
  void update(int percent) override;  // throws Interrupted
  void finalize() override;
  void message(const std::wstring& text) override;
  bool escape() override;

 private:
  void Erase();

  std::string m_label;
  bool m_visible;        // there is a terminal
  bool m_drawn = false;  // there is something to erase
  int m_drawnPercent = -1;
  std::chrono::steady_clock::time_point m_start;
};

}  // namespace korin::app
