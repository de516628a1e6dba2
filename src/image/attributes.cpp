// Attributes of an image and what follows from them without touching a pixel.
#include "image/image_pixels.h"
#include "korinimage/exceptions.h"
#include "korinimage/image.h"

void CImage::SetPlanes(int planes) {
  m_axes[2] = planes;
  // Unlike the sized constructor, which gives no planes the dimension 3.
  m_nDimension = planes > 1 ? 3 : 2;
}

void CImage::SetOrgFileName(const wchar_t* name) { m_orgFileName = name == nullptr ? L"" : name; }

void CImage::SetOrgFileFormat(const wchar_t* format) {
  m_orgFileFormat = format == nullptr ? L"" : format;
}

int CImage::GetBytesPixel() const { return korin::BitsOf(m_BitsPixel) >> 3; }

bool CImage::IsCcd() const { return *Header().GetCameraModel() == L'\0'; }

std::int32_t CImage::GetPixelCount() const {
  const auto factor = [this](std::size_t axis) { return static_cast<std::uint32_t>(m_axes[axis]); };
  return static_cast<std::int32_t>(factor(0) * factor(1) * factor(2));
}

std::int64_t CImage::GetImageSize() const {
  // Unsigned, so that absurd attributes wrap instead of being undefined.
  const auto factor = [](std::int64_t value) { return static_cast<std::uint64_t>(value); };
  return static_cast<std::int64_t>(factor(GetHeight()) * factor(GetPlanes()) * factor(GetWidth()) *
                                   factor(GetBytesPixel()));
}

std::int64_t CImage::GetLinesPerBlock() const {
  return m_pVmImage ? m_pVmImage->GetLinesPerBlock() : 0;
}

std::int64_t CImage::GetBlockCount() const { return m_pVmImage ? m_pVmImage->GetBlockCount() : 0; }

std::pair<std::int64_t, std::int64_t> CImage::GetBlockShape() const {
  if (!m_pVmImage) return {0, 0};
  const auto [width, lines] = m_pVmImage->GetBlockShape();
  return {width, lines};
}

CImage::ManagerPtr CImage::VmManager() const {
  return m_pVmImage ? m_pVmImage->VmManager() : ManagerPtr();
}

CVmManager::AllocationPolicy CImage::GetAllocationPolicy() const {
  return korin::RequireManager(*this)->GetAllocationPolicy();
}

CHeader& CImage::Header() {
  // A moved-from image has none until it is used again.
  if (!m_pHeader) m_pHeader = std::make_unique<CHeader>();
  return *m_pHeader;
}

const CHeader& CImage::Header() const {
  static const CHeader kEmpty;
  return m_pHeader ? *m_pHeader : kEmpty;
}
