#pragma once

#include "korinimage/image.h"

namespace korin::app {

class Session;

// Changes the pixel type row by row, whatever the policy: two whole planes that do not
// fit into the budget together would otherwise leave zeros without an error. Throws
// CVmMemoryAllocationError when there is no room, or what an interrupt throws.
void ConvertPixels(CImage& image, CImage::DataType type, bool isSigned,
                   CImage::ChangeBitsLevel mode, Session& session);

}  // namespace korin::app
