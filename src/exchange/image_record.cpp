#include "exchange/image_record.h"

#include "exchange/wire_bytes.h"

namespace korin::exchange {

namespace {

namespace at = wire::image;

// A value that travels as it is: where it lies, and how an image gives and takes it.
template <typename T>
struct Field {
  std::size_t offset;
  T ImageRecord::*member;
  T (CImage::*get)() const;
  void (CImage::*set)(T);
};

constexpr Field<std::int32_t> kIntegers[] = {
    {at::kWidth, &ImageRecord::width, &CImage::GetWidth, &CImage::SetWidth},
    {at::kHeight, &ImageRecord::height, &CImage::GetHeight, &CImage::SetHeight},
    {at::kPlanes, &ImageRecord::planes, &CImage::GetPlanes, &CImage::SetPlanes},
    {at::kOrgPlanes, &ImageRecord::orgPlanes, &CImage::GetOrgPlanes, &CImage::SetOrgPlanes},
    {at::kOrgWidth, &ImageRecord::orgWidth, &CImage::GetOrgWidth, &CImage::SetOrgWidth},
    {at::kOrgHeight, &ImageRecord::orgHeight, &CImage::GetOrgHeight, &CImage::SetOrgHeight},
    {at::kRawImageBits, &ImageRecord::rawImageBits, &CImage::GetRawImageBits,
     &CImage::SetRawImageBits},
};

constexpr Field<bool> kFlags[] = {
    {at::kSigned, &ImageRecord::isSigned, &CImage::IsSigned, &CImage::SetSigned},
    {at::kOwnLevel, &ImageRecord::ownLevel, &CImage::HasOwnLevel, &CImage::SetOwnLevel},
    {at::kSaveableFormat, &ImageRecord::saveableFormat, &CImage::IsSaveableFormat,
     &CImage::SetSaveableFormat},
    {at::kSaveableFile, &ImageRecord::saveableFile, &CImage::IsSaveableFile,
     &CImage::SetSaveableFile},
    {at::kOrgBayer, &ImageRecord::orgBayer, &CImage::IsOrgBayerImage, &CImage::SetOrgBayerImage},
    {at::kOrgHoneyComb, &ImageRecord::orgHoneyComb, &CImage::IsOrgHoneyCombImage,
     &CImage::SetOrgHoneyCombImage},
    {at::kOrgDevelopment, &ImageRecord::orgDevelopment, &CImage::IsOrgDevelopmentImage,
     &CImage::SetOrgDevelopmentImage},
    {at::kBayer, &ImageRecord::bayer, &CImage::IsBayerImage, &CImage::SetBayerImage},
    {at::kHoneyComb, &ImageRecord::honeyComb, &CImage::IsHoneyCombImage,
     &CImage::SetHoneyCombImage},
    {at::kDevelopment, &ImageRecord::development, &CImage::IsDevelopmentImage,
     &CImage::SetDevelopmentImage},
};

constexpr Field<double> kReals[] = {
    {at::kBscale, &ImageRecord::bscale, &CImage::GetBscale, &CImage::SetBscale},
    {at::kBzero, &ImageRecord::bzero, &CImage::GetBzero, &CImage::SetBzero},
};

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
  ImageRecord record;
  record.bitsPixel = GetValue<std::int32_t>(bytes, at::kBitsPixel);
  for (const auto& field : kIntegers) {
    record.*field.member = GetValue<std::int32_t>(bytes, field.offset);
  }
  if (!IsPlausible(record, withPixels)) return std::nullopt;
  for (const auto& field : kFlags) record.*field.member = GetFlag(bytes, field.offset);
  for (const auto& field : kReals) record.*field.member = GetValue<double>(bytes, field.offset);
  record.levelMin = GetDoubles<wire::kMaxPlanes>(bytes, at::kLevelMin);
  record.levelMax = GetDoubles<wire::kMaxPlanes>(bytes, at::kLevelMax);
  record.orgFileName = GetText(bytes, at::kOrgFileName, wire::kTextUnits);
  record.orgFileFormat = GetText(bytes, at::kOrgFileFormat, wire::kTextUnits);
  record.orgBitsPixel = GetValue<std::int32_t>(bytes, at::kOrgBitsPixel);
  return record;
}

void EncodeImage(const ImageRecord& record, std::span<std::byte> bytes) {
  PutValue(bytes, at::kBitsPixel, record.bitsPixel);
  for (const auto& field : kIntegers) PutValue(bytes, field.offset, record.*field.member);
  for (const auto& field : kFlags) PutFlag(bytes, field.offset, record.*field.member);
  for (const auto& field : kReals) PutValue(bytes, field.offset, record.*field.member);
  // Levels of planes that the image does not have stay as they are.
  const auto planes = static_cast<std::size_t>(record.planes < 0 ? 0 : record.planes);
  PutDoubles(bytes, at::kLevelMin, std::span(record.levelMin).first(planes));
  PutDoubles(bytes, at::kLevelMax, std::span(record.levelMax).first(planes));
  PutText(bytes, at::kOrgFileName, wire::kTextUnits, record.orgFileName);
  PutText(bytes, at::kOrgFileFormat, wire::kTextUnits, record.orgFileFormat);
  PutValue(bytes, at::kOrgBitsPixel, record.orgBitsPixel);
}

std::optional<ImageRecord> RecordOf(const CImage& image) {
  if (image.GetPlanes() > static_cast<int>(wire::kMaxPlanes)) return std::nullopt;
  ImageRecord record;
  record.bitsPixel = image.GetBitsPixel();
  for (const auto& field : kIntegers) record.*field.member = (image.*field.get)();
  for (const auto& field : kFlags) record.*field.member = (image.*field.get)();
  for (const auto& field : kReals) record.*field.member = (image.*field.get)();
  for (int plane = 0; plane < image.GetPlanes(); ++plane) {  // 0 where the image has none
    record.levelMin[static_cast<std::size_t>(plane)] = image.GetLevelMin(plane);
    record.levelMax[static_cast<std::size_t>(plane)] = image.GetLevelMax(plane);
  }
  record.orgFileName = image.GetOrgFileName();
  record.orgFileFormat = image.GetOrgFileFormat();
  record.orgBitsPixel = image.GetOrgBitsPixel();
  return record;
}

void ApplyRecord(const ImageRecord& record, CImage& image) {
  image.SetBitsPixel(static_cast<CImage::DataType>(record.bitsPixel));
  for (const auto& field : kIntegers) (image.*field.set)(record.*field.member);
  for (const auto& field : kFlags) (image.*field.set)(record.*field.member);
  for (const auto& field : kReals) (image.*field.set)(record.*field.member);
  const auto planes = static_cast<std::size_t>(record.planes);
  if (image.GetLevelMin().size() != planes || image.GetLevelMax().size() != planes ||
      image.GetLevelRange().size() != planes) {
    image.AllocLevel();
  }
  for (std::size_t plane = 0; plane < planes; ++plane) {
    image.SetLevel(static_cast<int>(plane), record.levelMin[plane], record.levelMax[plane]);
  }
  image.SetOrgFileName(record.orgFileName);
  image.SetOrgFileFormat(record.orgFileFormat);
  image.SetOrgBitsPixel(static_cast<CImage::SourceType>(record.orgBitsPixel));
}

}  // namespace korin::exchange
