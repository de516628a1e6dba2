// A plug-in that uses the library, as an application's own plug-in would.

#include <cstdint>
#include <thread>
#include <utility>

#include "korinimage/korinimage.h"
#include "korinimage/message_window.h"
#include "support/memory_config.h"
#include "support/system.h"

// Runs kernels on several threads. The sum of the results, or -1.
KORIN_TEST_EXPORT double RunKernels() try {
  const korin::test::ScopedMemoryConfig settings;
  korin::SetThreadCount(4);
  auto configuration = CVmManagerConfiguration::DefaultConfiguration();
  configuration->MaxDiskSize = 16;
  const auto manager = CVmManager::Create(std::move(configuration));
  manager->SetAllocationPolicy(CVmManager::AllocationPolicy::Planes);
  CImage image(manager, CImage::DataTypeInt16, 640, 480, 1, 1.0, 0.0, false, CImage::ProgressPtr());
  image.Fill(0, 1234.0);
  const auto [min, max] = image.GetMinMaxRaw(0);
  // A queue lasts as long as its thread.
  std::thread([] {
    const auto procedure = [](HWND, unsigned, std::uintptr_t, std::intptr_t,
                              void*) -> std::intptr_t { return 0; };
    const HWND window = korin::CreateMessageWindow(procedure, nullptr);
    korin::PostWindowMessage(window, korin::kMessagePaint, 0, 0);
    korin::DestroyMessageWindow(window);
  }).join();
  const auto histogram = image.HistogramRaw(0, 0.0, 2048.0, 2048);
  return histogram[1234] == 640 * 480 ? min + max : -3.0;
} catch (...) {
  return -1.0;
}
