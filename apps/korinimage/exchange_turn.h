#pragma once

#include <chrono>
#include <filesystem>

namespace korin::app {

// Whose turn it is in the exchange of an image between two runs of the command: a
// small file beside the user's settings says that an image waits, and its receiver
// renames it. What a killed run left there means nothing to the next: an offer counts
// only while somebody has the exchange open, and its sender keeps it there.
class ExchangeTurn {
 public:
  ExchangeTurn();

  // The sender's side; all but CheckFree with the exchange open. Throws
  // std::runtime_error when somebody else has the exchange open.
  void CheckFree() const;
  // Waits until the image was taken: true; false when `patience` ran out. Throws
  // Interrupted, and std::runtime_error when the file cannot be made. The offer is
  // withdrawn in any case.
  bool OfferUntilTaken(std::chrono::seconds patience) const;

  // The receiver's side: waits for an offer; false when `patience` ran out.
  bool WaitForOffer(std::chrono::seconds patience) const;
  void Take() const;

 private:
  class Withdrawal;

  void Offer() const;

  std::filesystem::path m_offer;
  std::filesystem::path m_taken;
};

}  // namespace korin::app
