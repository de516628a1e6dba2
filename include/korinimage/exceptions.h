#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <new>
#include <string>

#include "korinimage/export.h"

namespace korin {

// Base of the library's own exceptions that are not allocation failures.
class KORINIMAGE_API CKorinImageException : public std::exception {
 public:
  explicit CKorinImageException(const std::string& what);
  ~CKorinImageException() override;
  const char* what() const noexcept override;

 private:
  std::shared_ptr<const std::string> m_pWhat;  // shared: copying must not throw
};

class KORINIMAGE_API CVmManagerException : public CKorinImageException {
 public:
  using CKorinImageException::CKorinImageException;
  ~CVmManagerException() override;
};

// An image was used whose memory manager no longer exists (or that never had one).
class KORINIMAGE_API CVmManagerHandleDeletedError : public CVmManagerException {
 public:
  CVmManagerHandleDeletedError();
  ~CVmManagerHandleDeletedError() override;
};

// Bytes behind a refused allocation; -1 where a figure does not apply.
struct AllocationFigures {
  std::int64_t requested = -1;  // asked for
  std::int64_t used = -1;       // already in use
  std::int64_t allowed = -1;    // the limit
};

// Base of allocation failures. what() names the thing, the figures and, where
// there is one, the setting that lifts the limit.
class KORINIMAGE_API CKorinImageBadAllocException : public std::bad_alloc {
 public:
  CKorinImageBadAllocException();
  explicit CKorinImageBadAllocException(const std::string& what, AllocationFigures figures = {});
  ~CKorinImageBadAllocException() override;
  const char* what() const noexcept override;
  const AllocationFigures& Figures() const noexcept { return m_figures; }

 private:
  std::shared_ptr<const std::string> m_pWhat;
  AllocationFigures m_figures;
};

// A block or an image store cannot be allocated, placed or addressed, or the
// allocation policy is unknown.
class KORINIMAGE_API CVmMemoryAllocationError : public CKorinImageBadAllocException {
 public:
  using CKorinImageBadAllocException::CKorinImageBadAllocException;
  CVmMemoryAllocationError();
  ~CVmMemoryAllocationError() override;
};

}  // namespace korin
