#include "vm/swap_backend.h"

#include <limits>

#include "platform/text.h"

namespace {

// The transfer size that a call of `size` bytes makes: its low 32 bits.
std::size_t LowPart(std::int64_t size) { return static_cast<std::size_t>(size & 0xffffffff); }
bool FitsLowPart(std::int64_t size) { return size <= std::numeric_limits<std::uint32_t>::max(); }

}  // namespace

CVmVirtualMemory::~CVmVirtualMemory() = default;

std::unique_ptr<CVmVirtualMemory> CVmVirtualMemory::Create(const std::filesystem::path& folder) {
  return std::make_unique<CVmWin32VirtualMemory>(folder);
}

CVmWin32VirtualMemory::CVmWin32VirtualMemory(const std::filesystem::path& folder) {
  m_file.Create(folder);
}

CVmWin32VirtualMemory::CVmWin32VirtualMemory(const CVmWin32VirtualMemory& other)
    : CVmVirtualMemory(other) {}

CVmWin32VirtualMemory& CVmWin32VirtualMemory::operator=(const CVmWin32VirtualMemory&) {
  return *this;
}

CVmWin32VirtualMemory::~CVmWin32VirtualMemory() = default;

bool CVmWin32VirtualMemory::IsOpen() const { return m_file.IsOpen(); }

bool CVmWin32VirtualMemory::Seek(std::int64_t offset) {
  if (offset < 0 || !m_file.IsOpen()) return false;
  m_nOffset = offset;
  return true;
}

bool CVmWin32VirtualMemory::Truncate(std::int64_t offset) {
  return Seek(offset) && m_file.SetSize(offset);
}

bool CVmWin32VirtualMemory::Read(void* buffer, std::int64_t size) {
  if (size < 0) return false;
  const std::size_t moved = m_file.ReadAt(m_nOffset, buffer, LowPart(size));
  m_nOffset += static_cast<std::int64_t>(moved);
  return moved == LowPart(size) && FitsLowPart(size);
}

bool CVmWin32VirtualMemory::Write(const void* buffer, std::int64_t size) {
  if (size < 0) return false;
  const std::size_t moved = m_file.WriteAt(m_nOffset, buffer, LowPart(size));
  m_nOffset += static_cast<std::int64_t>(moved);
  return moved == LowPart(size) && FitsLowPart(size);
}

std::wstring CVmWin32VirtualMemory::GetPath() const {
  return korin::platform::PathToWide(m_file.Path());
}

void CVmWin32VirtualMemory::Discard(std::int64_t offset, std::int64_t size) noexcept {
  m_file.Discard(offset, size);
}

bool CVmWin32VirtualMemory::Reserve(std::int64_t offset, std::int64_t size) {
  return m_file.Reserve(offset, size);
}

bool CVmWin32VirtualMemory::ReadsBeside() const { return true; }

bool CVmWin32VirtualMemory::ReadBeside(std::int64_t offset, void* buffer, std::int64_t size) const {
  return offset >= 0 && size >= 0 &&
         m_file.ReadBeside(offset, buffer, LowPart(size)) == LowPart(size) && FitsLowPart(size);
}

std::string CVmWin32VirtualMemory::GetError() const { return m_file.Error(); }
