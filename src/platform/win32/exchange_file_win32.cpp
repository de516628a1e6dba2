// Handles of this file always share deletion, so that the reader can take the name
// away while the writer still has the file open. A sweep asks for a file alone, and
// any open handle keeps it out.
#include "platform/exchange_file.h"

#include <cstdio>
#include <string>
#include <vector>

#include "platform/process.h"
#include "platform/win32/file_calls.h"

namespace korin::platform {

namespace {

using win32::FileHandle;

bool IsPathTooLong(const std::filesystem::path& path) { return path.native().size() > MAX_PATH; }

// Renames an open file to a name that sweeps take, in the same folder: a file that
// others have open keeps its name until they close it.
void MoveAside(HANDLE file, const std::filesystem::path& path) {
  LARGE_INTEGER now;
  QueryPerformanceCounter(&now);
  wchar_t name[40];
  std::swprintf(name, std::size(name), L"~QV%08X%08X.tmp", static_cast<unsigned>(ProcessId()),
                static_cast<unsigned>(now.LowPart));
  const std::wstring aside = (path.parent_path() / name).native();
  const std::size_t nameBytes = aside.size() * sizeof(wchar_t);
  // All zero, no other root directory above all; aligned as the structure wants it.
  static_assert(alignof(FILE_RENAME_INFO) <= alignof(std::uint64_t));
  std::vector<std::uint64_t> space((sizeof(FILE_RENAME_INFO) + nameBytes) / sizeof(std::uint64_t) +
                                   1);
  auto* const info = reinterpret_cast<FILE_RENAME_INFO*>(space.data());
  info->FileNameLength = static_cast<DWORD>(nameBytes);
  std::copy(aside.begin(), aside.end(), info->FileName);
  SetFileInformationByHandle(file, FileRenameInfo, info,
                             static_cast<DWORD>(sizeof(FILE_RENAME_INFO) + nameBytes));
}

// Takes the name and, with the last handle, the file away.
bool RemoveOpen(HANDLE file, const std::filesystem::path& path) {
  if (win32::Injected(Call::kRemoveFile)) return false;
  MoveAside(file, path);
  FILE_DISPOSITION_INFO disposition;
  disposition.DeleteFile = TRUE;
  return SetFileInformationByHandle(file, FileDispositionInfo, &disposition, sizeof disposition) !=
         0;
}

// Takes a former file out of the way; false for whatever is not a file proper under
// this one name.
bool RemoveFormer(const std::filesystem::path& path) {
  const FileHandle former = win32::Open(path, DELETE | FILE_READ_ATTRIBUTES, win32::kShareAll,
                                        OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT);
  BY_HANDLE_FILE_INFORMATION info;
  if (!former) return GetLastError() == ERROR_FILE_NOT_FOUND;
  return win32::IsPlainFile(former.Get()) && GetFileInformationByHandle(former.Get(), &info) != 0 &&
         info.nNumberOfLinks == 1 && RemoveOpen(former.Get(), path);
}

// Without changing the size: a writer that is killed leaves a file that is visibly
// too short. False only when the disk is known to be too full.
bool ReserveSpace(HANDLE file, std::int64_t bytes) {
  if (win32::Injected(Call::kExtendFile)) return false;
  FILE_ALLOCATION_INFO allocation;
  allocation.AllocationSize.QuadPart = bytes;
  return SetFileInformationByHandle(file, FileAllocationInfo, &allocation, sizeof allocation) !=
             0 ||
         (GetLastError() != ERROR_DISK_FULL && GetLastError() != ERROR_HANDLE_DISK_FULL);
}

}  // namespace

bool ExchangeFile::Create(const std::filesystem::path& path, std::int64_t bytes) {
  Close();
  if (bytes < 0 || bytes > FileSizeLimit() || IsPathTooLong(path)) return false;
  std::filesystem::path kept(path);
  for (int attempt = 0; attempt < 3; ++attempt) {
    FileHandle file = win32::Open(path, GENERIC_READ | GENERIC_WRITE | DELETE,
                                  FILE_SHARE_READ | FILE_SHARE_DELETE, CREATE_NEW,
                                  FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT);
    if (!file) {
      if (GetLastError() != ERROR_FILE_EXISTS || !RemoveFormer(path)) return false;
      continue;
    }
    if (bytes > 0 && !ReserveSpace(file.Get(), bytes)) {
      RemoveOpen(file.Get(), path);
      return false;
    }
    m_handle = win32::ToNumber(file.Take());
    m_path = std::move(kept);
    return true;
  }
  return false;
}

// While it is read nobody may write it; one that is still being written does not open.
bool ExchangeFile::Open(const std::filesystem::path& path) {
  Close();
  if (IsPathTooLong(path)) return false;
  std::filesystem::path kept(path);
  FileHandle file =
      win32::Open(path, GENERIC_READ | GENERIC_WRITE | DELETE, FILE_SHARE_READ | FILE_SHARE_DELETE,
                  OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT);
  if (!file || !win32::IsPlainFile(file.Get())) return false;
  m_handle = win32::ToNumber(file.Take());
  m_path = std::move(kept);
  return true;
}

std::int64_t ExchangeFile::Size() const {
  LARGE_INTEGER size;
  return IsOpen() && GetFileSizeEx(win32::ToHandle(m_handle), &size) != 0 ? size.QuadPart : -1;
}

bool ExchangeFile::Write(const void* buffer, std::size_t size) {
  return IsOpen() && win32::WriteNext(win32::ToHandle(m_handle), buffer, size) == size;
}

bool ExchangeFile::Read(void* buffer, std::size_t size) {
  return IsOpen() && win32::ReadNext(win32::ToHandle(m_handle), buffer, size) == size;
}

// Exchanges the writing handle for one that lets a reader keep others from writing and
// from deleting. What is not whole keeps the first, to be removed.
bool ExchangeFile::Finish() {
  if (!IsOpen()) return false;
  FileHandle writing(win32::ToHandle(m_handle));
  FileHandle waiting(CreateFileW(m_path.c_str(), GENERIC_READ, win32::kShareAll, nullptr,
                                 OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  if (!waiting || FlushFileBuffers(writing.Get()) == 0 || win32::Injected(Call::kCloseFile)) {
    writing.Take();
    return false;
  }
  m_handle = win32::ToNumber(waiting.Take());
  return writing.Close();
}

void ExchangeFile::Remove() noexcept {
  if (!IsOpen()) return;
  const HANDLE file = win32::ToHandle(m_handle);
  try {
    if (!RemoveOpen(file, m_path)) return;
  } catch (...) {
    return;
  }
  // The writer still has it open, and with it the disk space.
  if (win32::Seek(file, 0)) SetEndOfFile(file);
}

void ExchangeFile::Close() noexcept {
  const FileHandle closing(win32::ToHandle(std::exchange(m_handle, -1)));
}

}  // namespace korin::platform
