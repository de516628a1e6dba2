#include "exchange_turn.h"

#include <fstream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "interrupt.h"
#include "korinimage/config.h"
#include "korinimage/shared_mem.h"

namespace korin::app {

namespace {

namespace fs = std::filesystem;

bool Exists(const fs::path& file) {
  std::error_code error;
  return fs::exists(file, error);
}

// Looks until `condition` holds: true; false when the time is up.
template <typename Condition>
bool LookFor(std::chrono::seconds patience, Condition condition) {
  constexpr auto kLook = std::chrono::milliseconds(50);
  const auto start = std::chrono::steady_clock::now();
  while (!condition()) {
    CheckInterrupt();
    if (std::chrono::steady_clock::now() - start >= patience) return false;
    std::this_thread::sleep_for(kLook);
  }
  return true;
}

}  // namespace

class ExchangeTurn::Withdrawal {
 public:
  explicit Withdrawal(const ExchangeTurn& turn) : m_turn(turn) { RemoveBoth(); }
  Withdrawal(const Withdrawal&) = delete;
  Withdrawal& operator=(const Withdrawal&) = delete;
  ~Withdrawal() { RemoveBoth(); }

 private:
  void RemoveBoth() const {
    std::error_code ignored;
    fs::remove(m_turn.m_offer, ignored);
    fs::remove(m_turn.m_taken, ignored);
  }

  const ExchangeTurn& m_turn;
};

ExchangeTurn::ExchangeTurn() {
  fs::path folder = Config::DefaultConfig()->File().parent_path();
  if (folder.empty()) folder = fs::temp_directory_path();
  m_offer = folder / "korinimage-offer";
  m_taken = folder / "korinimage-taken";
}

void ExchangeTurn::CheckFree() const {
  if (IsExchangeOpen()) {
    throw std::runtime_error("another image is on its way, or a program keeps the exchange open");
  }
}

void ExchangeTurn::Offer() const {
  std::error_code ignored;
  fs::create_directories(m_offer.parent_path(), ignored);
  if (!std::ofstream(m_offer)) {
    throw std::runtime_error(m_offer.string() + " cannot be written");
  }
}

bool ExchangeTurn::OfferUntilTaken(std::chrono::seconds patience) const {
  const Withdrawal withdrawal(*this);
  return LookFor(patience, [this] {
    // A receiver that took a fresh offer for a killed sender's may have removed it.
    if (!Exists(m_taken) && !Exists(m_offer) && !Exists(m_taken)) Offer();
    return Exists(m_taken);
  });
}

bool ExchangeTurn::WaitForOffer(std::chrono::seconds patience) const {
  return LookFor(patience, [this] {
    if (!Exists(m_offer)) return false;
    if (IsExchangeOpen()) return true;
    std::error_code ignored;
    fs::remove(m_offer, ignored);
    return false;
  });
}

void ExchangeTurn::Take() const {
  std::error_code ignored;
  fs::rename(m_offer, m_taken, ignored);
}

}  // namespace korin::app
