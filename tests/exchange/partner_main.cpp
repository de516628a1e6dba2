// The other process of the exchange tests.
//   send TYPE SIGNED POLICY LIMIT READYFILE   offers a sample until its input ends
//   receive POLICY LIMIT PIXELS OUTFILE       takes an image and describes it
//   churn LIMIT                               exchanges with itself until it is killed
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "exchange/exchange_sample.h"
#include "exchange/pixel_exchange.h"
#include "korinimage/shared_mem.h"

namespace {

using namespace korin::test;

int Send(const std::vector<int>& numbers, const std::string& ready) {
  CImage image = MakeSample({numbers[0], numbers[1] != 0}, numbers[2]);
  if (CSharedMem::CreateFileMappings(1) != 1) return 2;
  if (CSharedMem::WriteSharedMemory(&image, 1) != 1) return 3;
  std::ofstream(ready) << "ready" << std::flush;
  while (std::getchar() != EOF) {
  }
  CSharedMem::CloseMappingHandles();
  return 0;
}

int Receive(int policy, bool pixels, const std::string& out) {
  // A fresh process: its manager sweeps leftovers before the image is read.
  const auto manager = MakeSampleManager(policy);
  CImage image;
  if (CSharedMem::CreateFileMappings(1) != 1) return 2;
  if (CSharedMem::ReadSharedMemory(manager, &image, pixels ? 1 : 0) != 1) return 3;
  std::ofstream(out, std::ios::binary) << Describe(image);
  CSharedMem::CloseMappingHandles();
  return 0;
}

int Churn() {
  CImage sent = MakeSample({-32, false}, 1);
  const auto manager = MakeSampleManager(0);
  for (int round = 0;; ++round) {
    korin::exchange::g_maxMappedSamples = round % 2 == 0 ? 1 : 1000000;
    CImage received;
    CSharedMem::CreateFileMappings(1);
    CSharedMem::WriteSharedMemory(&sent, 1);
    CSharedMem::ReadSharedMemory(manager, &received, 1);
    CSharedMem::CloseMappingHandles();
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  const auto number = [&](std::size_t i) { return std::atoi(args.at(i).c_str()); };
  const ScopedMemoryConfig settings;
  if (args.size() == 6 && args[0] == "send") {
    korin::exchange::g_maxMappedSamples = number(4);
    return Send({number(1), number(2), number(3)}, args[5]);
  }
  if (args.size() == 5 && args[0] == "receive") {
    korin::exchange::g_maxMappedSamples = number(2);
    return Receive(number(1), number(3) != 0, args[4]);
  }
  if (args.size() == 1 && args[0] == "churn") return Churn();
  return 1;
}
