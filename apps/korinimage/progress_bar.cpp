#include "progress_bar.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "interrupt.h"
#include "platform/terminal.h"

namespace korin::app {

namespace {

constexpr int kCells = 30;
constexpr auto kPatience = std::chrono::milliseconds(300);  // short steps show no bar

}  // namespace

ProgressBar::ProgressBar(std::string label)
    : m_label(std::move(label)),
      m_visible(platform::IsTerminal(platform::StandardStream::kError)),
      m_start(std::chrono::steady_clock::now()) {}

ProgressBar::~ProgressBar() { Erase(); }

void ProgressBar::initialize() {}

void ProgressBar::update(int percent) {
  CheckInterrupt();
  if (!m_visible) return;
  percent = std::clamp(percent, 0, 100);
  if (percent == m_drawnPercent || std::chrono::steady_clock::now() - m_start < kPatience) return;
  const int filled = percent * kCells / 100;
  const std::string bar =
      fmt::format("\r{} [{:#<{}}{:.<{}}] {:3}%", m_label, "", filled, "", kCells - filled, percent);
  std::fputs(bar.c_str(), stderr);
  std::fflush(stderr);
  m_drawn = true;
  m_drawnPercent = percent;
}

void ProgressBar::finalize() { Erase(); }

void ProgressBar::message(const std::wstring&) {}

bool ProgressBar::escape() { return WasInterrupted(); }

void ProgressBar::Erase() {
  if (!m_drawn) return;
  m_drawn = false;
  std::fputs("\r\x1b[K", stderr);
  std::fflush(stderr);
}

}  // namespace korin::app
