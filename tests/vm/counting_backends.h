#pragma once

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "vm/vm_test_support.h"

namespace korin::test {

// What a manager takes from its backends, counted by them.
struct Usage {
  // Bytes now, and the most there ever were.
  struct Level {
    std::atomic<std::int64_t> now{0};
    std::atomic<std::int64_t> most{0};
    void Add(std::int64_t bytes) {
      const std::int64_t after = now += bytes;
      std::int64_t former = most;
      while (former < after && !most.compare_exchange_weak(former, after)) {
      }
    }
  };
  Level memory;
  Level disk;
  // Transfers of the swap file.
  int reads = 0, writes = 0;
  std::int64_t bytesRead = 0, bytesWritten = 0;
  std::int64_t largest = 0;   // bytes
  std::int64_t lastSeek = 0;  // offset
};

class CountedMemory : public CVmMemoryInterface {
 public:
  // With `shared` every block is that buffer.
  CountedMemory(Usage& usage, std::int64_t size, BYTE* shared)
      : m_usage(usage),
        m_size(size),
        m_shared(shared),
        m_memory(shared == nullptr ? Alloc(size) : nullptr) {
    m_usage.memory.Add(m_size);
    // The manager takes what is not the system's own memory for zeroed.
    if (m_memory && m_memory->IsValid()) {
      std::memset(m_memory->GetAddress(), 0, static_cast<std::size_t>(size));
    }
  }
  ~CountedMemory() override { m_usage.memory.Add(-m_size); }
  void* GetAddress() override { return m_shared != nullptr ? m_shared : m_memory->GetAddress(); }
  const void* GetAddress() const override { return const_cast<CountedMemory*>(this)->GetAddress(); }
  bool IsNull() const override { return m_shared == nullptr && m_memory->IsNull(); }
  bool IsValid() const override { return m_shared != nullptr || m_memory->IsValid(); }

 private:
  Usage& m_usage;
  std::int64_t m_size;
  BYTE* m_shared;
  std::unique_ptr<CVmMemoryInterface> m_memory;
};

// A swap file in memory, or one that holds nothing.
class CountedSwap : public CVmVirtualMemory {
 public:
  CountedSwap(Usage& usage, bool keeps) : m_usage(usage), m_keeps(keeps) {}
  bool IsOpen() const override { return true; }
  bool Seek(std::int64_t offset) override {
    m_usage.lastSeek = m_at = offset;
    return true;
  }
  bool Truncate(std::int64_t end) override {
    EXPECT_GE(end, m_usage.disk.now) << "the file never shrinks";
    m_usage.disk.Add(end - m_usage.disk.now);
    if (m_keeps) m_bytes.resize(static_cast<std::size_t>(end));
    return true;
  }
  bool Read(void* buffer, std::int64_t size) override {
    ++m_usage.reads;
    m_usage.bytesRead += size;
    return Move(buffer, size, false);
  }
  bool Write(const void* buffer, std::int64_t size) override {
    ++m_usage.writes;
    m_usage.bytesWritten += size;
    return Move(const_cast<void*>(buffer), size, true);
  }
  std::wstring GetPath() const override { return {}; }

 private:
  bool Move(void* buffer, std::int64_t size, bool write) {
    m_usage.largest = std::max(m_usage.largest, size);
    char* const bytes = m_bytes.data() + (m_keeps ? m_at : 0);
    m_at += size;
    EXPECT_LE(m_at, m_usage.disk.now) << "beyond the end of the file";
    if (m_at > m_usage.disk.now) return false;
    if (!m_keeps) return true;
    write ? std::memcpy(bytes, buffer, static_cast<std::size_t>(size))
          : std::memcpy(buffer, bytes, static_cast<std::size_t>(size));
    return true;
  }

  Usage& m_usage;
  bool m_keeps;
  std::vector<char> m_bytes;
  std::int64_t m_at = 0;
};

// A manager on such backends; with `shared` every block is that buffer and the swap
// file holds nothing.
inline std::shared_ptr<CVmManagerImpl> CreateCountedManager(Usage& usage, std::int32_t blockSize,
                                                            std::int64_t capacity,
                                                            std::int64_t limit,
                                                            BYTE* shared = nullptr) {
  vm::ManagerSeams seams;
  seams.memory = [&usage, shared](std::int64_t size) {
    return std::make_unique<CountedMemory>(usage, size, shared);
  };
  seams.swap = [&usage, shared](const std::filesystem::path&) {
    return std::make_unique<CountedSwap>(usage, shared == nullptr);
  };
  return CreateManagerForTest(blockSize, capacity, limit, seams);
}

}  // namespace korin::test
