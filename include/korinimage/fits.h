#pragma once

#include "korinimage/export.h"
#include "korinimage/types.h"

// Byte order of FITS data, which is big-endian.
class KORINIMAGE_API CFits {
 public:
  CFits() = default;
  CFits(const CFits&) = default;
  CFits& operator=(const CFits&) = default;
  virtual ~CFits();

  // Exchanges *a and *b; a == b and null pointers are allowed and change nothing.
  // A value of several bytes is reversed by calling it on its outer pair of bytes,
  // then on the inner pairs. Throws nothing; touches no shared state.
  static void ByteSwap(BYTE* a, BYTE* b) noexcept;
};
