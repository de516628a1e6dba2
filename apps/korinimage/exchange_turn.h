#pragma once

#include <chrono>
#include <filesystem>

namespace korin::app {

// Whose turn it is in the exchange of an image between two runs of the command: a
// small file beside the user's settings says that an image waits. Its writer keeps
// renewing it, so that one left by a killed writer is told from a live one.
class ExchangeTurn {
 public:
  ExchangeTurn();

  // The sender's side. Throws std::runtime_error when another image waits already
  // or the file cannot be made.
  void CheckFree() const;
  void Offer();
  // Waits until the image was taken: true; false when `patience` ran out. Throws
  // Interrupted. The offer is withdrawn either way.
  bool WaitUntilTaken(std::chrono::seconds patience);

  // The receiver's side: waits for an offer; false when `patience` ran out.
  bool WaitForOffer(std::chrono::seconds patience) const;
  void Take();

 private:
  bool IsLive() const;

  std::filesystem::path m_file;
};

}  // namespace korin::app
