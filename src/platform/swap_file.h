#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

namespace korin::platform {

// A file of this process alone for pixels that do not fit into memory: uniquely
// named "~QV" + hexadecimal digits + ".tmp", readable by its owner only, locked
// while it is open and gone when it is closed. In a forked child every transfer
// fails and closing removes nothing.
//
// Not thread safe, but for ReadBeside.
class SwapFile {
 public:
  SwapFile() = default;
  SwapFile(const SwapFile&) = delete;
  SwapFile& operator=(const SwapFile&) = delete;
  ~SwapFile() { Close(); }

  // Creates and locks a new file in `folder`; false when none can be made.
  bool Create(const std::filesystem::path& folder);
  void Close() noexcept;
  bool IsOpen() const { return m_handle != -1; }
  const std::filesystem::path& Path() const { return m_path; }

  // Move `size` bytes at `offset` and return how many moved; fewer than `size`
  // means failure (see Error).
  std::size_t ReadAt(std::int64_t offset, void* buffer, std::size_t size);
  std::size_t WriteAt(std::int64_t offset, const void* buffer, std::size_t size);
  // ReadAt for any thread, beside any other call; says nothing to Error.
  std::size_t ReadBeside(std::int64_t offset, void* buffer, std::size_t size) const;

  // Makes the file end at `size`. Growing reserves the space where the file
  // system can, so that later writes do not find the disk full; on failure the
  // file keeps its size.
  bool SetSize(std::int64_t size);
  // Gives the disk space of a range back; it reads as zeros afterwards. False when
  // the file system cannot.
  bool Discard(std::int64_t offset, std::int64_t size);
  // Reserves the space of a range inside the file again after a Discard.
  bool Reserve(std::int64_t offset, std::int64_t size);

  // The path and what the system said about the last failure.
  std::string Error() const;

 private:
  bool Usable(std::int64_t offset = 0, std::int64_t size = 0);

  std::intptr_t m_handle = -1;
  // For ReadBeside, where one handle has one position.
  [[maybe_unused]] std::intptr_t m_beside = -1;
  std::filesystem::path m_path;
  std::int64_t m_owner = 0;  // process that created the file
  int m_error = 0;           // the system's number of the last failure
};

}  // namespace korin::platform
