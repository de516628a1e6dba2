#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>

#include "platform/fault.h"
#include "platform/memory_pages.h"

namespace korin::platform {

namespace {

// Mappings of this size and more are worth huge pages: one fault in place of 512.
constexpr std::int64_t kHugeWorth = 4 << 20;

bool Refused(Call call) {
  const Fault fault = AskFault(call);
  return fault != Fault::kNone && fault != Fault::kInterrupted;
}

}  // namespace

std::int64_t PageSize() {
  static const std::int64_t size = sysconf(_SC_PAGESIZE);
  return size;
}

void* MapPages(std::int64_t size) {
  if (size <= 0 || size > kLargestMapping || Refused(Call::kMapMemory)) return nullptr;
  const auto bytes = static_cast<std::size_t>(size);
  void* address = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (address == MAP_FAILED) return nullptr;
#ifdef MADV_HUGEPAGE
  if (size >= kHugeWorth) madvise(address, bytes, MADV_HUGEPAGE);
#endif
  return address;
}

bool UnmapPages(void* address, std::int64_t size) {
  if (Refused(Call::kUnmapMemory)) return false;
  return munmap(address, static_cast<std::size_t>(size)) == 0;
}

bool DiscardPages(void* address, std::int64_t size) {
  if (Refused(Call::kUnmapMemory)) return false;
  return madvise(address, static_cast<std::size_t>(size), MADV_DONTNEED) == 0;
}

bool ProtectPages(void* address, std::int64_t size, bool accessible) {
  const int access = accessible ? PROT_READ | PROT_WRITE : PROT_NONE;
  return mprotect(address, static_cast<std::size_t>(size), access) == 0;
}

}  // namespace korin::platform
