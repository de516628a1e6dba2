#include "exchange_turn.h"

#include <fstream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "interrupt.h"
#include "korinimage/config.h"

namespace korin::app {

namespace {

namespace fs = std::filesystem;

constexpr auto kLook = std::chrono::milliseconds(50);
constexpr auto kRenewal = std::chrono::seconds(1);
constexpr auto kStale = std::chrono::seconds(10);

class Withdrawal {
 public:
  explicit Withdrawal(const fs::path& file) : m_file(file) {}
  Withdrawal(const Withdrawal&) = delete;
  Withdrawal& operator=(const Withdrawal&) = delete;
  ~Withdrawal() {
    std::error_code ignored;
    fs::remove(m_file, ignored);
  }

 private:
  const fs::path& m_file;
};

}  // namespace

ExchangeTurn::ExchangeTurn() {
  fs::path folder = Config::DefaultConfig()->File().parent_path();
  if (folder.empty()) folder = fs::temp_directory_path();
  m_file = folder / "korinimage-exchange";
}

bool ExchangeTurn::IsLive() const {
  std::error_code error;
  const auto renewed = fs::last_write_time(m_file, error);
  return !error && fs::file_time_type::clock::now() - renewed < kStale;
}

void ExchangeTurn::CheckFree() const {
  if (IsLive()) throw std::runtime_error("another image already waits to be received");
}

void ExchangeTurn::Offer() {
  std::error_code ignored;
  fs::create_directories(m_file.parent_path(), ignored);
  fs::remove(m_file, ignored);
  if (!std::ofstream(m_file)) {
    throw std::runtime_error(m_file.string() + " cannot be written");
  }
}

bool ExchangeTurn::WaitUntilTaken(std::chrono::seconds patience) {
  const Withdrawal withdrawal(m_file);
  const auto start = std::chrono::steady_clock::now();
  auto renewed = start;
  for (;;) {
    CheckInterrupt();
    std::error_code error;
    if (!fs::exists(m_file, error)) return true;
    const auto now = std::chrono::steady_clock::now();
    if (now - start >= patience) return false;
    if (now - renewed >= kRenewal) {
      fs::last_write_time(m_file, fs::file_time_type::clock::now(), error);
      renewed = now;
    }
    std::this_thread::sleep_for(kLook);
  }
}

bool ExchangeTurn::WaitForOffer(std::chrono::seconds patience) const {
  const auto start = std::chrono::steady_clock::now();
  while (!IsLive()) {
    CheckInterrupt();
    if (std::chrono::steady_clock::now() - start >= patience) return false;
    std::this_thread::sleep_for(kLook);
  }
  return true;
}

void ExchangeTurn::Take() {
  std::error_code ignored;
  fs::remove(m_file, ignored);
}

}  // namespace korin::app
