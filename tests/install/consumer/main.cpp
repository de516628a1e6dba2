#include <korinimage/korinimage.h>

#include <cstdio>

int main() {
  const auto manager = CVmManager::Create(nullptr);
  CImage image(manager, CImage::DataTypeFloat, 640, 480, 3, 1.0, 0.0, true, CImage::ProgressPtr());
  image.Fill(-1, 7.0);
  image.ChangeBits(CImage::DataTypeInt16, false, CImage::ChangeBitsLevel::Raw,
                   CImage::ProgressPtr());
  std::printf("korinimage %s: average %g\n", korin::Version(), image.GetAverage(-1));
}
