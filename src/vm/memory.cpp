#include "korinimage/vm_memory.h"

#include <cstdint>
#include <new>

#include "vm/region_cache.h"

using korin::vm::RegionCache;

CVmMemoryInterface::~CVmMemoryInterface() = default;

std::unique_ptr<CVmMemoryInterface> CVmMemoryInterface::Alloc(std::int64_t size) {
  return std::unique_ptr<CVmMemoryInterface>(new (std::nothrow) CVmWin32Memory(size));
}

CVmWin32Memory::CVmWin32Memory(std::int64_t size) {
  const RegionCache::Taken taken = RegionCache::Instance().Take(size);
  m_pAddress = taken.address;
  m_zeroed = taken.zeroed;
}

CVmWin32Memory::CVmWin32Memory(const CVmWin32Memory& other) : CVmMemoryInterface(other) {}

CVmWin32Memory& CVmWin32Memory::operator=(const CVmWin32Memory&) { return *this; }

CVmWin32Memory::~CVmWin32Memory() {
  if (m_pAddress != nullptr) RegionCache::Instance().Give(m_pAddress);
}

void* CVmWin32Memory::GetAddress() { return m_pAddress; }
const void* CVmWin32Memory::GetAddress() const { return m_pAddress; }
bool CVmWin32Memory::IsNull() const { return m_pAddress == nullptr; }
bool CVmWin32Memory::IsValid() const {
  return m_pAddress != nullptr && reinterpret_cast<std::uintptr_t>(m_pAddress) % 16 == 0;
}

void CVmMemory::Reset() { *this = CVmMemory(); }
