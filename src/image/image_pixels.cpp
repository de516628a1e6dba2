#include "image/image_pixels.h"

#include <string>

#include "korinimage/exceptions.h"

namespace korin {

std::optional<ElementKind> ElementKindOf(const CImage& image) {
  return ElementKindOf(static_cast<int>(image.GetBitsPixel()), image.IsSigned());
}

int BitsOf(CImage::DataType type) {
  switch (type) {
    case CImage::DataTypeInt8:
      return 8;
    case CImage::DataTypeInt16:
      return 16;
    case CImage::DataTypeInt32:
    case CImage::DataTypeFloat:
      return 32;
    case CImage::DataTypeDouble:
      return 64;
    default:
      return 0;
  }
}

std::shared_ptr<CVmManager> RequireManager(const CImage& image) {
  auto manager = image.VmManager();
  if (!manager) throw CVmManagerHandleDeletedError();
  return manager;
}

PixelView RequirePixels(const CImage& image, ElementKind kind) {
  // Reading through the store moves blocks, never pixels: a const image is read so.
  auto* store = const_cast<CVmImage*>(image.Store());
  if (store == nullptr) throw CVmManagerHandleDeletedError();
  const bool fits =
      image.GetBytesPixel() == store->GetBytesPixel() && image.GetWidth() <= store->GetWidth() &&
      image.GetHeight() <= store->GetHeight() && image.GetPlanes() <= store->GetPlanes();
  if (!fits) {
    const auto shape = [](auto bytes, auto width, auto height, auto planes) {
      return std::to_string(width) + " x " + std::to_string(height) + " x " +
             std::to_string(planes) + " pixels of " + std::to_string(bytes) + " bytes";
    };
    throw CVmMemoryAllocationError(
        "the image says " +
        shape(image.GetBytesPixel(), image.GetWidth(), image.GetHeight(), image.GetPlanes()) +
        " but its store holds " +
        shape(store->GetBytesPixel(), store->GetWidth(), store->GetHeight(), store->GetPlanes()) +
        ": allocate the image after changing its type or size");
  }
  return {store, image.GetWidth(),  image.GetHeight(), image.GetPlanes(),
          kind,  image.GetBscale(), image.GetBzero()};
}

}  // namespace korin
