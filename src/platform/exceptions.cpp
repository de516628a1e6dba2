#include "korinimage/exceptions.h"

namespace korin {

CKorinImageException::CKorinImageException(const std::string& what)
    : m_pWhat(std::make_shared<const std::string>(what)) {}
CKorinImageException::~CKorinImageException() = default;
const char* CKorinImageException::what() const noexcept { return m_pWhat->c_str(); }

CVmManagerException::~CVmManagerException() = default;

CVmManagerHandleDeletedError::CVmManagerHandleDeletedError()
    : CVmManagerException("the image has no memory manager: it is empty or its manager is gone") {}
CVmManagerHandleDeletedError::~CVmManagerHandleDeletedError() = default;

// The message-less forms allocate nothing: they are thrown when memory is short.
CKorinImageBadAllocException::CKorinImageBadAllocException() = default;
CKorinImageBadAllocException::CKorinImageBadAllocException(const std::string& what,
                                                           AllocationFigures figures)
    : m_pWhat(std::make_shared<const std::string>(what)), m_figures(figures) {}
CKorinImageBadAllocException::~CKorinImageBadAllocException() = default;
const char* CKorinImageBadAllocException::what() const noexcept {
  return m_pWhat ? m_pWhat->c_str() : "memory for image pixels could not be allocated";
}

CVmMemoryAllocationError::CVmMemoryAllocationError() = default;
CVmMemoryAllocationError::~CVmMemoryAllocationError() = default;

}  // namespace korin
