#pragma once

#include "korinimage/vm_memory_interface.h"
#include "platform/swap_file.h"

// The swap backend on a file of the platform layer.
class CVmWin32VirtualMemory : public CVmVirtualMemory {
 public:
  explicit CVmWin32VirtualMemory(const std::filesystem::path& folder);
  // A copy is closed; an assigned object keeps its own file.
  CVmWin32VirtualMemory(const CVmWin32VirtualMemory& other);
  CVmWin32VirtualMemory& operator=(const CVmWin32VirtualMemory& other);
  ~CVmWin32VirtualMemory() override;

  bool IsOpen() const override;
  bool Seek(std::int64_t offset) override;
  bool Truncate(std::int64_t offset) override;
  bool Read(void* buffer, std::int64_t size) override;
  bool Write(const void* buffer, std::int64_t size) override;
  std::wstring GetPath() const override;
  void Discard(std::int64_t offset, std::int64_t size) noexcept override;
  bool Reserve(std::int64_t offset, std::int64_t size) override;
  bool ReadsBeside() const override;
  bool ReadBeside(std::int64_t offset, void* buffer, std::int64_t size) const override;
  std::string GetError() const override;

 private:
  korin::platform::SwapFile m_file;
  std::int64_t m_nOffset = 0;
};
