#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "korinimage/export.h"
#include "korinimage/types.h"

// Storage of one block in process memory. The manager touches memory only
// through this interface.
class KORINIMAGE_API CVmMemoryInterface {
 public:
  CVmMemoryInterface() = default;
  // Copying copies nothing: a copy owns no region, an assigned object keeps its own.
  CVmMemoryInterface(const CVmMemoryInterface&) {}
  CVmMemoryInterface& operator=(const CVmMemoryInterface&) { return *this; }
  virtual ~CVmMemoryInterface();

  virtual void* GetAddress() = 0;
  virtual const void* GetAddress() const = 0;
  virtual bool IsNull() const = 0;
  // True when the region exists and is aligned to 16 bytes.
  virtual bool IsValid() const = 0;

  // A region of `size` bytes that stays at one address until the object is
  // destroyed. The object is returned even when the region could not be had (test
  // IsValid); size <= 0 gives an object that is not valid. An empty pointer: the
  // object itself could not be made. New bytes are unspecified. Thread safe.
  static std::unique_ptr<CVmMemoryInterface> Alloc(std::int64_t size);
};

// One committed region of process memory.
class KORINIMAGE_API CVmWin32Memory : public CVmMemoryInterface {
 public:
  explicit CVmWin32Memory(std::int64_t size);
  CVmWin32Memory(const CVmWin32Memory& other);
  CVmWin32Memory& operator=(const CVmWin32Memory& other);
  ~CVmWin32Memory() override;

  void* GetAddress() override;
  const void* GetAddress() const override;
  bool IsNull() const override;
  bool IsValid() const override;
  // True when every byte of the region was zero when the object was made.
  bool IsZeroed() const { return m_zeroed; }

 private:
  void* m_pAddress = nullptr;
  bool m_zeroed = false;
};

// A swap file: random access, private to the process, gone when it is closed.
// Not thread safe; the manager serialises its use.
class KORINIMAGE_API CVmVirtualMemory : public CVmMemoryInterface {
 public:
  ~CVmVirtualMemory() override;

  virtual bool IsOpen() const = 0;
  // Sets the position, in bytes from the start; false for a negative offset.
  virtual bool Seek(std::int64_t offset) = 0;
  // Sets the position and makes the file end there, its space really reserved.
  virtual bool Truncate(std::int64_t offset) = 0;
  // Move `size` bytes at the position and advance it by what moved. A size of
  // 4 GiB or more moves its low 32 bits and is false; a negative one moves nothing.
  virtual bool Read(void* buffer, std::int64_t size) = 0;
  virtual bool Write(const void* buffer, std::int64_t size) = 0;
  virtual std::wstring GetPath() const = 0;

  // Gives the disk space of a range back while nothing in it counts; it reads as
  // zeros or as before. May do nothing.
  virtual void Discard(std::int64_t /*offset*/, std::int64_t /*size*/) noexcept {}
  // Makes sure again that a discarded range can be written; false: no space.
  virtual bool Reserve(std::int64_t /*offset*/, std::int64_t /*size*/) { return true; }
  // Whether ReadBeside works at all.
  virtual bool ReadsBeside() const { return false; }
  // Reads `size` bytes at `offset`; the position stays. The one call that any thread may
  // make beside any other.
  virtual bool ReadBeside(std::int64_t /*offset*/, void* /*buffer*/, std::int64_t /*size*/) const {
    return false;
  }
  // The file and what the system said about the last failure, for messages.
  virtual std::string GetError() const { return {}; }

  // A new, uniquely named swap file in `folder`, readable by its owner only. Test
  // IsOpen: a file that cannot be made gives a closed object.
  static std::unique_ptr<CVmVirtualMemory> Create(const std::filesystem::path& folder);

  // A swap file is no memory region.
  void* GetAddress() override { return nullptr; }
  const void* GetAddress() const override { return nullptr; }
  bool IsNull() const override { return true; }
  bool IsValid() const override { return false; }
};
