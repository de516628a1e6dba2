#pragma once

#include "korinimage/export.h"

// What an object knows about its class at run time.
struct CRuntimeClass {
  const char* m_lpszClassName;  // never null; lives as long as the program
};

class CArchive;  // a stream of the host framework; the library neither defines nor uses one

// Root of the library's polymorphic objects. A class that wants to be told apart
// at run time overrides GetRuntimeClass with a record of its own; records are
// compared by address.
class KORINIMAGE_API CObject {
 public:
  CObject() = default;
  CObject(const CObject&) = default;
  CObject& operator=(const CObject&) = default;

  // Record of the object's class; never null. Throws nothing.
  virtual const CRuntimeClass* GetRuntimeClass() const;
  virtual ~CObject();
  // Does nothing: no object of the library is stored through an archive.
  virtual void Serialize(CArchive& archive);
};
