#include "exchange/header_record.h"

#include <algorithm>

#include "exchange/wire_bytes.h"

namespace korin::exchange {

namespace {

tagFRational GetRational(std::span<const std::byte> bytes, std::size_t offset) {
  return {GetValue<double>(bytes, offset), GetValue<double>(bytes, offset + sizeof(double))};
}

void PutRational(std::span<std::byte> bytes, std::size_t offset, const tagFRational& value) {
  PutValue(bytes, offset, value.numerator);
  PutValue(bytes, offset + sizeof(double), value.denominator);
}

}  // namespace

HeaderRecord ParseHeader(std::span<const std::byte> bytes) {
  namespace at = wire::header;
  HeaderRecord record;
  for (std::size_t slot = 0; slot < at::kCardSlots; ++slot) {
    std::wstring card = GetText(bytes, at::kCards + slot * at::kCardBytes, at::kCardUnits);
    if (card.empty()) break;
    record.cards.push_back(std::move(card));
  }
  record.shutterSpeed = GetRational(bytes, at::kShutterSpeed);
  record.fNumber = GetRational(bytes, at::kFNumber);
  record.iso = GetValue<std::uint16_t>(bytes, at::kIso);
  record.lightSource = GetText(bytes, at::kLightSource, wire::kTextUnits);
  record.focalLength = GetRational(bytes, at::kFocalLength);
  record.cameraMaker = GetText(bytes, at::kCameraMaker, wire::kTextUnits);
  record.cameraModel = GetText(bytes, at::kCameraModel, wire::kTextUnits);
  record.gainFlag = GetValue<std::int32_t>(bytes, at::kGainFlag);
  record.bayerGains = GetDoubles<at::kBayerGainCount>(bytes, at::kBayerGains);
  record.honeyCombGains = GetDoubles<at::kHoneyCombGainCount>(bytes, at::kHoneyCombGains);
  return record;
}

void EncodeHeader(const HeaderRecord& record, std::span<std::byte> bytes) {
  namespace at = wire::header;
  for (std::size_t slot = 0; slot < at::kCardSlots; ++slot) {
    PutValue<std::uint16_t>(bytes, at::kCards + slot * at::kCardBytes, 0);
  }
  const std::size_t cards = std::min(record.cards.size(), at::kCardSlots);
  for (std::size_t slot = 0; slot < cards; ++slot) {
    const std::wstring& card = record.cards[slot];
    const bool empty = card.empty() || card[0] == L'\0';
    PutText(bytes, at::kCards + slot * at::kCardBytes, at::kCardUnits, empty ? L" " : card);
  }
  PutRational(bytes, at::kShutterSpeed, record.shutterSpeed);
  PutRational(bytes, at::kFNumber, record.fNumber);
  PutValue(bytes, at::kIso, record.iso);
  PutText(bytes, at::kLightSource, wire::kTextUnits, record.lightSource);
  PutRational(bytes, at::kFocalLength, record.focalLength);
  PutText(bytes, at::kCameraMaker, wire::kTextUnits, record.cameraMaker);
  PutText(bytes, at::kCameraModel, wire::kTextUnits, record.cameraModel);
  PutValue(bytes, at::kGainFlag, record.gainFlag);
  PutDoubles(bytes, at::kBayerGains, record.bayerGains);
  PutDoubles(bytes, at::kHoneyCombGains, record.honeyCombGains);
}

HeaderRecord RecordOf(const CHeader& header) {
  HeaderRecord record;
  const int cards = std::min(header.GetCount(), static_cast<int>(wire::header::kCardSlots));
  for (int i = 0; i < cards; ++i) record.cards.push_back(header.GetAt(i));
  header.GetExposureShutterSpeed(record.shutterSpeed);
  header.GetExposureFNumber(record.fNumber);
  record.iso = header.GetISO();
  record.lightSource = header.GetLightSource();
  header.GetFocalLength(record.focalLength);
  record.cameraMaker = header.GetCameraMaker();
  record.cameraModel = header.GetCameraModel();
  record.gainFlag = header.IsWBShootingGain();
  header.GetWBShootingGainBayer(record.bayerGains.data());
  header.GetWBShootingGainHoneyComb(record.honeyCombGains.data());
  return record;
}

void ApplyRecord(const HeaderRecord& record, CHeader& header) {
  for (const std::wstring& card : record.cards) header.Add(card.c_str());
  header.SetExposureShutterSpeed(record.shutterSpeed);
  header.SetExposureFNumber(record.fNumber);
  header.SetISO(record.iso);
  header.SetLightSource(record.lightSource);
  header.SetFocalLength(record.focalLength);
  header.SetCameraMaker(record.cameraMaker.c_str());
  header.SetCameraModel(record.cameraModel.c_str());
  header.SetWBShootingGain(record.gainFlag);
  header.SetWBShootingGainBayer(record.bayerGains.data());
  header.SetWBShootingGainHoneyComb(record.honeyCombGains.data());
}

}  // namespace korin::exchange
