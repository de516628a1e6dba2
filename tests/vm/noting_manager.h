#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "vm/manager_impl.h"

namespace korin::test {

// A manager of an application's own that notes the paging calls. It hands out
// handles of its own, passes the calls on and knows nothing of guards.
class NotingManager : public CVmManager, public std::enable_shared_from_this<NotingManager> {
 public:
  using Calls = std::vector<std::string>;
  using Handle = std::shared_ptr<CVmHandle>;
  using Sink = std::shared_ptr<Progress>;

  explicit NotingManager(std::shared_ptr<CVmManagerImpl> real) : m_real(std::move(real)) {}

  void AllocImageHandle(Handle& handle, std::int64_t l, std::int64_t h, std::int64_t p,
                        const Sink& progress) override {
    calls.push_back("image handle");
    m_real->AllocImageHandle(handle, l, h, p, progress);
    Own(handle);
  }
  void AllocHandle(Handle& handle, std::int64_t bytes, std::int64_t count,
                   const Sink& progress) override {
    calls.push_back("handle " + std::to_string(bytes) + " x " + std::to_string(count));
    m_real->AllocHandle(handle, bytes, count, progress);
    Own(handle);
  }
  void AllocHandle(Handle& handle, std::int64_t count, const Sink& progress) override {
    AllocHandle(handle, GetBlockSize(), count, progress);
  }
  void ReleaseHandle(Handle& handle) override {
    calls.push_back("release " + Name(handle));
    Handle real = Real(handle);
    m_real->ReleaseHandle(real);
    FreeHandle(handle);
  }
  BYTE* GetBlockAddress(const Handle& handle, std::int64_t index, bool write) override {
    calls.push_back("get " + Name(handle) + ":" + std::to_string(index) +
                    (write ? " true" : " false"));
    return failAt-- == 0 ? nullptr : m_real->GetBlockAddress(Real(handle), index, write);
  }
  bool LockBlock(const Handle& handle, bool lock, std::int64_t i) override {
    calls.push_back((lock ? "lock " : "unlock ") + std::to_string(i));
    return !refuseLocks && m_real->LockBlock(Real(handle), lock, i);
  }
  bool MakeRoom(const Handle& h) override { return m_real->MakeRoom(Real(h)); }
  void UnlockAll(const Handle& h) override { m_real->UnlockAll(Real(h)); }
  bool IsOnMemory(const Handle& h) const override { return m_real->IsOnMemory(Real(h)); }
  std::int64_t GetBlockSize() const override { return m_real->GetBlockSize(); }
  AllocationPolicy GetAllocationPolicy() const override { return m_real->GetAllocationPolicy(); }
  void SetAllocationPolicy(AllocationPolicy p) override { m_real->SetAllocationPolicy(p); }
  std::int64_t GetLinesPerBlock(std::int64_t l, std::int64_t h, std::int64_t p) const override {
    return m_real->GetLinesPerBlock(l, h, p);
  }
  std::int64_t GetBlockCountFor(std::int64_t l, std::int64_t h, std::int64_t p) const override {
    return m_real->GetBlockCountFor(l, h, p);
  }
  MemoryInfo GetMemoryInfo() const override { return {}; }
  VMSTATUS GetStatus() const override { return {}; }
  VMSTATUS GetDefaultStatus() const override { return {}; }
  PhysicalMemory GetPhysicalMemory() const override { return {}; }
  std::int64_t GetDiskUsedBytes() const override { return 0; }
  std::int64_t GetAllocatedBlocks() const override { return 0; }
  std::int64_t GetDiskLimitBlocks() const override { return 0; }
  std::int64_t GetMemoryCapacityBlocks() const override { return 0; }
  std::int64_t GetTotalCapacityBlocks() const override { return 0; }
  std::recursive_mutex& GetLock() override { return m_real->GetLock(); }

  Calls calls;
  int failAt = -1;  // which GetBlockAddress from now on fails
  bool refuseLocks = false;

 private:
  void Own(Handle& handle) {
    if (!handle) return;
    m_handles.emplace_back(std::make_shared<CVmHandle>(handle->GetBlockSize(),
                                                       handle->GetBlockCount(), shared_from_this()),
                           handle);
    handle = m_handles.back().first;
  }
  Handle Real(const Handle& handle) const {
    for (const auto& [own, real] : m_handles) {
      if (own == handle) return real;
    }
    return nullptr;
  }
  // The handles count from 0 in the order they were made.
  std::string Name(const Handle& handle) const {
    for (std::size_t i = 0; i < m_handles.size(); ++i) {
      if (m_handles[i].first == handle) return std::to_string(i);
    }
    return "?";
  }

  std::shared_ptr<CVmManagerImpl> m_real;
  std::vector<std::pair<Handle, Handle>> m_handles;  // own, real
};

}  // namespace korin::test
