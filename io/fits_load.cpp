#include <utility>

#include "fits_input.h"
#include "korinimage/io/fits_file.h"
#include "korinimage/scoped_progress.h"
#include "pixel_rows.h"
#include "platform/text.h"

namespace korin {

FitsDescription DescribeFits(const std::filesystem::path& file, const FitsOptions& options) {
  return FitsInput(file, options).Description();
}

std::unique_ptr<CImage> LoadFits(const std::shared_ptr<CVmManager>& manager,
                                 const std::filesystem::path& file, const FitsOptions& options,
                                 const std::shared_ptr<Progress>& progress) {
  FitsInput input(file, options);
  const FitsDescription& found = input.Description();
  input.CheckTiles();

  const int width = static_cast<int>(found.width);
  const int height = static_cast<int>(found.height);
  const int planes = static_cast<int>(found.planes);
  auto image = std::make_unique<CImage>(manager, found.type, width, height, planes, found.bscale,
                                        found.bzero, found.isSigned, nullptr);
  image->Header() = found.header;
  image->SetOrgFileName(platform::PathToWide(file));
  image->SetOrgFileFormat(L"FITS");
  image->SetOrgWidth(width);
  image->SetOrgHeight(height);
  image->SetOrgPlanes(planes);
  image->SetSaveableFormat(true);

  ImageRowsScopedProgress rows(progress, planes, height);
  const std::int64_t step = RowsPerStep(found.BytesPerLine());
  for (std::int64_t plane = 0; plane < planes; ++plane) {
    ForRowRuns(*image, plane, 0, height, step, BlockIntent::Overwrite,
               [&](BYTE* pixels, std::int64_t y, std::int64_t count) {
                 rows.Row(plane, y);
                 input.ReadPixels((plane * height + y) * width, count * width, pixels);
               });
  }
  return image;
}

}  // namespace korin
