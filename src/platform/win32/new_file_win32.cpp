#include "platform/new_file.h"

#include <utility>

#include "platform/win32/leftovers.h"

namespace korin::platform {

NewFile::~NewFile() {
  win32::FileHandle(win32::ToHandle(m_handle)).Close();
  if (!m_path.empty() && !win32::Injected(Call::kRemoveFile)) DeleteFileW(m_path.c_str());
}

bool NewFile::Fail() {
  m_error = std::error_code(static_cast<int>(GetLastError()), std::system_category());
  return false;
}

// Nobody else may open it, but it may be given its name while it is open: a sweep takes
// only what nobody has open. Whom it is open to later is the folder's matter.
bool NewFile::Create(const std::filesystem::path& file) {
  std::filesystem::path kept(file);  // nothing may fail once the file is there
  win32::FileHandle made = win32::Open(file, GENERIC_WRITE, FILE_SHARE_DELETE, CREATE_NEW,
                                       FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT);
  if (!made) return Fail();
  m_handle = win32::ToNumber(made.Take());
  m_path = std::move(kept);
  return true;
}

void NewFile::SweepLeftovers(const std::filesystem::path& folder) noexcept {
  try {
    for (const win32::Entry& entry : win32::List(folder)) {
      if (entry.isFolder || entry.isLink || !IsTemporaryName(entry.name)) continue;
      win32::RemoveFile(entry.path);
    }
  } catch (...) {  // no memory for the names: the next one sweeps
  }
}

bool NewFile::Write(const void* bytes, std::size_t size) {
  return win32::WriteNext(win32::ToHandle(m_handle), bytes, size) == size || Fail();
}

bool NewFile::Publish(const std::filesystem::path& target) {
  const win32::FileHandle file(win32::ToHandle(std::exchange(m_handle, -1)));
  if (!win32::Sync(file.Get()) || win32::Injected(Call::kCloseFile) ||
      !win32::Rename(m_path, target)) {
    return Fail();
  }
  m_path.clear();
  return true;
}

}  // namespace korin::platform
