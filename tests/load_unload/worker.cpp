// A plug-in that uses the library, as an application's own plug-in would.

#include <utility>

#include "korinimage/korinimage.h"
#include "support/memory_config.h"

#if defined(_WIN32)
#define KORIN_WORKER_API extern "C" __declspec(dllexport)
#else
#define KORIN_WORKER_API extern "C" __attribute__((visibility("default")))
#endif

// Runs kernels on several threads. The sum of the results, or -1.
KORIN_WORKER_API double RunKernels() try {
  const korin::test::ScopedMemoryConfig settings;
  korin::SetThreadCount(4);
  auto configuration = CVmManagerConfiguration::DefaultConfiguration();
  configuration->MaxDiskSize = 16;
  const auto manager = CVmManager::Create(std::move(configuration));
  manager->SetAllocationPolicy(CVmManager::AllocationPolicy::Planes);
  CImage image(manager, CImage::DataTypeInt16, 640, 480, 1, 1.0, 0.0, false, CImage::ProgressPtr());
  image.Fill(0, 1234.0);
  const auto [min, max] = image.GetMinMaxRaw(0);
  return min + max;
} catch (...) {
  return -1.0;
}
