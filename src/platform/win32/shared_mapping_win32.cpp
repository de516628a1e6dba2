// Named sections of the paging file: they live as long as a handle to them does, and
// their names are those of the session.
#include "platform/shared_mapping.h"

#include <cstring>
#include <filesystem>

#include "platform/memory_pages.h"
#include "platform/process.h"
#include "platform/win32/file_calls.h"

namespace korin::platform {

namespace {

constexpr std::int64_t kPiece = 16 << 20;  // mapped at a time, also in a small address space

std::wstring Wide(std::string_view name) { return std::wstring(name.begin(), name.end()); }

std::int64_t Granularity() {
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  return info.dwAllocationGranularity;
}

// A view of part of a section, from a multiple of the granularity on. With 0 bytes it
// reaches to the section's end.
class View {
 public:
  View(HANDLE section, DWORD access, std::int64_t offset, std::int64_t bytes) {
    if (win32::Injected(Call::kMapShared)) return;
    m_address =
        MapViewOfFile(section, access, static_cast<DWORD>(offset >> 32),
                      static_cast<DWORD>(offset & 0xFFFFFFFF), static_cast<std::size_t>(bytes));
  }
  View(const View&) = delete;
  View& operator=(const View&) = delete;
  ~View() {
    if (m_address != nullptr) UnmapViewOfFile(m_address);
  }
  char* Address() const { return static_cast<char*>(m_address); }
  // How many bytes from the view's beginning on are there: pages of somebody else's
  // section may be promised only, and touching those would be a fault.
  std::int64_t Committed() const {
    MEMORY_BASIC_INFORMATION info;
    const bool known = m_address != nullptr && VirtualQuery(m_address, &info, sizeof info) != 0;
    return known && info.State == MEM_COMMIT ? static_cast<std::int64_t>(info.RegionSize) : 0;
  }

 private:
  void* m_address = nullptr;
};

// Whether the section ends on the page on which one of `bytes` bytes ends: a section
// that exists under the name may be of any size.
bool HasSize(HANDLE section, std::int64_t bytes) {
  const std::int64_t tail = (bytes - 1) / Granularity() * Granularity();
  const View view(section, FILE_MAP_READ, tail, 0);
  const std::int64_t pages = (bytes - tail + PageSize() - 1) / PageSize();
  return view.Committed() == pages * PageSize();
}

// Calls copy(view, done, size) for piece after piece of a range.
template <typename Copy>
bool ForEachPiece(HANDLE section, Call call, DWORD access, std::int64_t offset, std::size_t size,
                  Copy copy) {
  static const std::int64_t granularity = Granularity();
  const std::size_t moved =
      win32::Transfer(call, size, [&](std::size_t done, DWORD most, DWORD& now) {
        const std::int64_t from = offset + static_cast<std::int64_t>(done);
        const std::int64_t skip = from % granularity;
        const std::int64_t piece = std::min<std::int64_t>(most, kPiece);
        const View view(section, access, from - skip, skip + piece);
        if (view.Committed() < skip + piece) return false;
        copy(view.Address() + skip, done, static_cast<std::size_t>(piece));
        now = static_cast<DWORD>(piece);
        return true;
      });
  return moved == size;
}

}  // namespace

bool SharedMapping::Open(std::string_view name, std::int64_t bytes) {
  if (IsOpen()) return m_name == name && m_size == bytes;
  if (bytes <= 0 || win32::Injected(Call::kOpenFile)) return false;
  std::string kept(name);
  const HANDLE section = CreateFileMappingW(
      INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, static_cast<DWORD>(bytes >> 32),
      static_cast<DWORD>(bytes & 0xFFFFFFFF), Wide(name).c_str());
  if (section == nullptr) return false;
  win32::FileHandle held(section);
  if (!HasSize(section, bytes)) return false;
  m_handle = win32::ToNumber(held.Take());
  m_name = std::move(kept);
  m_size = bytes;
  m_owner = ProcessId();
  return true;
}

void SharedMapping::Close() noexcept {
  if (!IsOpen()) return;
  CloseHandle(win32::ToHandle(std::exchange(m_handle, -1)));
  m_size = 0;
}

bool SharedMapping::Contains(std::int64_t offset, std::size_t size) const {
  return IsOpen() && offset >= 0 && offset <= m_size &&
         size <= static_cast<std::uint64_t>(m_size - offset);
}

bool SharedMapping::ReadAt(std::int64_t offset, void* buffer, std::size_t size) const {
  return Contains(offset, size) &&
         ForEachPiece(win32::ToHandle(m_handle), Call::kReadFile, FILE_MAP_READ, offset, size,
                      [&](const char* view, std::size_t done, std::size_t piece) {
                        std::memcpy(static_cast<char*>(buffer) + done, view, piece);
                      });
}

bool SharedMapping::WriteAt(std::int64_t offset, const void* buffer, std::size_t size) const {
  return Contains(offset, size) &&
         ForEachPiece(win32::ToHandle(m_handle), Call::kWriteFile, FILE_MAP_WRITE, offset, size,
                      [&](char* view, std::size_t done, std::size_t piece) {
                        std::memcpy(view, static_cast<const char*>(buffer) + done, piece);
                      });
}

bool IsSharedMappingHeld(std::string_view name) noexcept {
  try {
    const HANDLE section = OpenFileMappingW(FILE_MAP_READ, FALSE, Wide(name).c_str());
    if (section == nullptr) return GetLastError() == ERROR_ACCESS_DENIED;
    CloseHandle(section);
    return true;
  } catch (...) {
    return true;  // unknown: whoever asks spares what is held
  }
}

}  // namespace korin::platform
