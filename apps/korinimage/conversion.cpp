#include "conversion.h"

#include "interrupt.h"
#include "korinimage/exceptions.h"
#include "policy_scope.h"
#include "session.h"

namespace korin::app {

void ConvertPixels(CImage& image, CImage::DataType type, bool isSigned,
                   CImage::ChangeBitsLevel mode, Session& session) {
  const PolicyScope rows(image, CVmManager::AllocationPolicy::Blocks);
  if (!image.ChangeBits(type, isSigned, mode, session.MakeProgress("converting"))) {
    throw CVmMemoryAllocationError("there is no room to convert the image");
  }
  CheckInterrupt();
}

}  // namespace korin::app
