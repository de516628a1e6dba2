#pragma once

#include <cstdint>
#include <memory>

#include "image/pixel_access.h"
#include "korinimage/image.h"

namespace korin {

// The element kind of an image; empty for an unknown type.
std::optional<ElementKind> ElementKindOf(const CImage& image);

// Bits per pixel of a type, 0 for an unknown one.
int BitsOf(CImage::DataType type);

// The manager of an image's store. Throws korin::CVmManagerHandleDeletedError for an
// empty image or one whose manager is gone.
std::shared_ptr<CVmManager> RequireManager(const CImage& image);

// The pixels of an image of a known type, for a loop. Every loop over pixels gets
// its geometry here: attributes set without a store to match are refused with
// korin::CVmMemoryAllocationError; attributes smaller than the store address part
// of its lines.
PixelView RequirePixels(const CImage& image, ElementKind kind);

}  // namespace korin
