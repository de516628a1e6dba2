#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace korin::platform {

// A named piece of memory that processes of one user share. It lives as long as
// some process has it open: the first to open it finds zeros, whatever a process
// that was killed left behind. Other users can neither read nor write it, and an
// object of theirs under the name is refused.
//
// Its bytes are only copied in and out, never addressed, so that neither a full
// memory file system nor a partner that shrinks the object can raise a fault.
//
// ReadAt and WriteAt may be called by several threads at once, Open and Close only
// alone. Nothing throws but std::bad_alloc.
class SharedMapping {
 public:
  SharedMapping() = default;
  SharedMapping(const SharedMapping&) = delete;
  SharedMapping& operator=(const SharedMapping&) = delete;
  ~SharedMapping() { Close(); }

  // Opens or makes the object `name` of exactly `bytes` bytes; memory is taken only
  // as bytes are written. True when this object has it open already. False, after
  // a second at most, when the name means anything but a private object of this
  // user and of that size, or cannot be made.
  bool Open(std::string_view name, std::int64_t bytes);
  // Lets go; the last process to do so removes the object. In a forked child only
  // the child's own copy goes.
  void Close() noexcept;
  bool IsOpen() const { return m_handle != -1; }
  std::int64_t Size() const { return m_size; }  // 0 when closed

  // All `size` bytes at `offset`, or false (outside, out of memory, an object that
  // somebody shrank); part of them may have moved then.
  bool ReadAt(std::int64_t offset, void* buffer, std::size_t size) const;
  bool WriteAt(std::int64_t offset, const void* buffer, std::size_t size) const;

 private:
  bool Contains(std::int64_t offset, std::size_t size) const;

  std::intptr_t m_handle = -1;
  std::string m_name;
  std::int64_t m_size = 0;
  std::int64_t m_owner = 0;  // the process that opened it
};

// True when some living process of this user has the object open, this one
// included, or when that cannot be told. An object that nobody holds any more is
// removed. Waits for nobody.
bool IsSharedMappingHeld(std::string_view name) noexcept;

}  // namespace korin::platform
