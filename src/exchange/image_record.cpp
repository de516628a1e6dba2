#include "exchange/image_record.h"

#include "exchange/wire_bytes.h"

namespace korin::exchange {

namespace {

bool IsKnownType(std::int32_t bitsPixel) {
  switch (bitsPixel) {
    case CImage::DataTypeInt8:
    case CImage::DataTypeInt16:
    case CImage::DataTypeInt32:
    case CImage::DataTypeFloat:
    case CImage::DataTypeDouble:
      return true;
    default:
      return false;
  }
}

bool IsPlausible(const ImageRecord& record, bool withPixels) {
  const std::int32_t least = withPixels ? 1 : 0;
  if (!IsKnownType(record.bitsPixel) && (withPixels || record.bitsPixel != 0)) return false;
  return record.width >= least && record.height >= least && record.planes >= least &&
         record.planes <= static_cast<std::int32_t>(wire::kMaxPlanes);
}

}  // namespace

std::optional<ImageRecord> ParseImage(std::span<const std::byte> bytes, bool withPixels) {
  namespace at = wire::image;
  const auto integer = [&](std::size_t offset) { return GetValue<std::int32_t>(bytes, offset); };
  ImageRecord record;
  record.bitsPixel = integer(at::kBitsPixel);
  record.isSigned = GetFlag(bytes, at::kSigned);
  record.width = integer(at::kWidth);
  record.height = integer(at::kHeight);
  record.planes = integer(at::kPlanes);
  if (!IsPlausible(record, withPixels)) return std::nullopt;
  record.bscale = GetValue<double>(bytes, at::kBscale);
  record.bzero = GetValue<double>(bytes, at::kBzero);
  record.levelMin = GetDoubles<wire::kMaxPlanes>(bytes, at::kLevelMin);
  record.levelMax = GetDoubles<wire::kMaxPlanes>(bytes, at::kLevelMax);
  record.ownLevel = GetFlag(bytes, at::kOwnLevel);
  record.saveableFormat = GetFlag(bytes, at::kSaveableFormat);
  record.saveableFile = GetFlag(bytes, at::kSaveableFile);
  record.orgFileName = GetText(bytes, at::kOrgFileName, wire::kTextUnits);
  record.orgFileFormat = GetText(bytes, at::kOrgFileFormat, wire::kTextUnits);
  record.orgBitsPixel = integer(at::kOrgBitsPixel);
  record.orgPlanes = integer(at::kOrgPlanes);
  record.orgBayer = GetFlag(bytes, at::kOrgBayer);
  record.orgHoneyComb = GetFlag(bytes, at::kOrgHoneyComb);
  record.orgDevelopment = GetFlag(bytes, at::kOrgDevelopment);
  record.orgWidth = integer(at::kOrgWidth);
  record.orgHeight = integer(at::kOrgHeight);
  record.bayer = GetFlag(bytes, at::kBayer);
  record.honeyComb = GetFlag(bytes, at::kHoneyComb);
  record.rawImageBits = integer(at::kRawImageBits);
  record.development = GetFlag(bytes, at::kDevelopment);
  return record;
}

void EncodeImage(const ImageRecord& record, std::span<std::byte> bytes) {
  namespace at = wire::image;
  PutValue(bytes, at::kBitsPixel, record.bitsPixel);
  PutFlag(bytes, at::kSigned, record.isSigned);
  PutValue(bytes, at::kWidth, record.width);
  PutValue(bytes, at::kHeight, record.height);
  PutValue(bytes, at::kPlanes, record.planes);
  PutValue(bytes, at::kBscale, record.bscale);
  PutValue(bytes, at::kBzero, record.bzero);
  // Levels of planes that the image does not have stay as they are.
  const auto planes = static_cast<std::size_t>(record.planes < 0 ? 0 : record.planes);
  PutDoubles(bytes, at::kLevelMin, std::span(record.levelMin).first(planes));
  PutDoubles(bytes, at::kLevelMax, std::span(record.levelMax).first(planes));
  PutFlag(bytes, at::kOwnLevel, record.ownLevel);
  PutFlag(bytes, at::kSaveableFormat, record.saveableFormat);
  PutFlag(bytes, at::kSaveableFile, record.saveableFile);
  PutText(bytes, at::kOrgFileName, wire::kTextUnits, record.orgFileName);
  PutText(bytes, at::kOrgFileFormat, wire::kTextUnits, record.orgFileFormat);
  PutValue(bytes, at::kOrgBitsPixel, record.orgBitsPixel);
  PutValue(bytes, at::kOrgPlanes, record.orgPlanes);
  PutFlag(bytes, at::kOrgBayer, record.orgBayer);
  PutFlag(bytes, at::kOrgHoneyComb, record.orgHoneyComb);
  PutFlag(bytes, at::kOrgDevelopment, record.orgDevelopment);
  PutValue(bytes, at::kOrgWidth, record.orgWidth);
  PutValue(bytes, at::kOrgHeight, record.orgHeight);
  PutFlag(bytes, at::kBayer, record.bayer);
  PutFlag(bytes, at::kHoneyComb, record.honeyComb);
  PutValue(bytes, at::kRawImageBits, record.rawImageBits);
  PutFlag(bytes, at::kDevelopment, record.development);
}

std::optional<ImageRecord> RecordOf(const CImage& image) {
  if (image.GetPlanes() > static_cast<int>(wire::kMaxPlanes)) return std::nullopt;
  ImageRecord record;
  record.bitsPixel = image.GetBitsPixel();
  record.isSigned = image.IsSigned();
  record.width = image.GetWidth();
  record.height = image.GetHeight();
  record.planes = image.GetPlanes();
  record.bscale = image.GetBscale();
  record.bzero = image.GetBzero();
  for (int plane = 0; plane < image.GetPlanes(); ++plane) {  // 0 where the image has none
    record.levelMin[static_cast<std::size_t>(plane)] = image.GetLevelMin(plane);
    record.levelMax[static_cast<std::size_t>(plane)] = image.GetLevelMax(plane);
  }
  record.ownLevel = image.HasOwnLevel();
  record.saveableFormat = image.IsSaveableFormat();
  record.saveableFile = image.IsSaveableFile();
  record.orgFileName = image.GetOrgFileName();
  record.orgFileFormat = image.GetOrgFileFormat();
  record.orgBitsPixel = image.GetOrgBitsPixel();
  record.orgPlanes = image.GetOrgPlanes();
  record.orgBayer = image.IsOrgBayerImage();
  record.orgHoneyComb = image.IsOrgHoneyCombImage();
  record.orgDevelopment = image.IsOrgDevelopmentImage();
  record.orgWidth = image.GetOrgWidth();
  record.orgHeight = image.GetOrgHeight();
  record.bayer = image.IsBayerImage();
  record.honeyComb = image.IsHoneyCombImage();
  record.rawImageBits = image.GetRawImageBits();
  record.development = image.IsDevelopmentImage();
  return record;
}

void ApplyRecord(const ImageRecord& record, CImage& image) {
  image.SetBitsPixel(static_cast<CImage::DataType>(record.bitsPixel));
  image.SetSigned(record.isSigned);
  image.SetWidth(record.width);
  image.SetHeight(record.height);
  image.SetPlanes(record.planes);
  image.SetBscale(record.bscale);
  image.SetBzero(record.bzero);
  const auto planes = static_cast<std::size_t>(record.planes);
  if (image.GetLevelMin().size() != planes || image.GetLevelMax().size() != planes ||
      image.GetLevelRange().size() != planes) {
    image.AllocLevel();
  }
  for (std::size_t plane = 0; plane < planes; ++plane) {
    image.SetLevel(static_cast<int>(plane), record.levelMin[plane], record.levelMax[plane]);
  }
  image.SetOwnLevel(record.ownLevel);
  image.SetSaveableFormat(record.saveableFormat);
  image.SetSaveableFile(record.saveableFile);
  image.SetOrgFileName(record.orgFileName);
  image.SetOrgFileFormat(record.orgFileFormat);
  image.SetOrgBitsPixel(static_cast<CImage::SourceType>(record.orgBitsPixel));
  image.SetOrgPlanes(record.orgPlanes);
  image.SetOrgBayerImage(record.orgBayer);
  image.SetOrgHoneyCombImage(record.orgHoneyComb);
  image.SetOrgDevelopmentImage(record.orgDevelopment);
  image.SetOrgWidth(record.orgWidth);
  image.SetOrgHeight(record.orgHeight);
  image.SetBayerImage(record.bayer);
  image.SetHoneyCombImage(record.honeyComb);
  image.SetRawImageBits(record.rawImageBits);
  image.SetDevelopmentImage(record.development);
}

}  // namespace korin::exchange
