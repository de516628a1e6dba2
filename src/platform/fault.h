#pragma once

#include <atomic>
#include <cstdint>

// The one seam through which tests make the operating system fail. Every
// implementation of the platform layer asks before each system call; without a
// hook the question costs one relaxed load.
namespace korin::platform {

enum class Call : std::uint8_t {
  kMapMemory,    // obtaining a memory region
  kUnmapMemory,  // giving a region back
  kOpenFile,     // creating or opening any file or shared object
  kReadFile,
  kWriteFile,
  kExtendFile,  // truncating or reserving space
  kLockFile,
  kSyncFile,  // waiting until the medium holds the bytes
  kCloseFile,
  kRenameFile,  // taking a name, another file's included
  kRemoveFile,
  kMapShared,    // viewing a shared mapping
  kQueryVolume,  // free space, kind of volume
  kQueryMemory,  // memory figures
};

enum class Fault : std::uint8_t {
  kNone,
  kNoMemory,
  kNoSpace,
  kIoError,
  kShort,        // a transfer moves only part of what was asked
  kInterrupted,  // a signal arrived: the implementation must try again
};

// Called with the call about to be made, from any thread. Null: no faults.
using FaultHook = Fault (*)(Call call);

extern std::atomic<FaultHook> g_faultHook;

[[nodiscard]] inline Fault AskFault(Call call) {
  const FaultHook hook = g_faultHook.load(std::memory_order_relaxed);
  return hook == nullptr ? Fault::kNone : hook(call);
}

struct MemoryFigures;

// Answers of the system that a test puts in place of the real ones. What is left
// at its default is asked of the system.
struct Overrides {
  const MemoryFigures* memory = nullptr;  // see memory_figures.h
  std::int64_t freeBytes = -1;            // available bytes of every volume
  std::int64_t fileSizeLimit = -1;        // bytes, of one file
  int isWow64 = -1;                       // 0 or 1
  int volumeKind = -1;                    // a VolumeKind, of every folder (volume.h)
};

// Null: no overrides. The object pointed to must outlive its use.
extern std::atomic<const Overrides*> g_overrides;

[[nodiscard]] inline const Overrides& CurrentOverrides() {
  static constexpr Overrides kNone{};
  const Overrides* overrides = g_overrides.load(std::memory_order_acquire);
  return overrides == nullptr ? kNone : *overrides;
}

}  // namespace korin::platform
