#include "korinimage/fits.h"

#include <utility>

CFits::~CFits() = default;

void CFits::ByteSwap(BYTE* a, BYTE* b) noexcept {
  if (a != nullptr && b != nullptr) std::swap(*a, *b);
}
