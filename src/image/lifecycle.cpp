// How an image comes into being, is copied, moved, given pixels and emptied.
#include <algorithm>
#include <exception>
#include <new>

#include "image/image_pixels.h"
#include "kernels/byte_copy.h"
#include "korinimage/exceptions.h"
#include "korinimage/image.h"
#include "korinimage/progress_win.h"
#include "platform/process.h"

namespace {

std::size_t PlaneCount(int planes) { return static_cast<std::size_t>(std::max(planes, 0)); }

// True when nobody changed the type or size of an image behind its store.
bool HasShapeOfStore(const CImage& image) {
  const CVmImage& store = *image.Store();
  return image.GetBytesPixel() == store.GetBytesPixel() && image.GetWidth() == store.GetWidth() &&
         image.GetHeight() == store.GetHeight() && image.GetPlanes() == store.GetPlanes();
}

std::unique_ptr<CVmImage> CopyOf(CVmImage& store,
                                 const std::shared_ptr<korin::Progress>& progress) {
  auto copy = std::make_unique<CVmImage>();
  copy->CopyImage(store, progress, korin::MoverFor(store));
  return copy;
}

}  // namespace

CImage::CImage() : m_pHeader(std::make_unique<CHeader>()) { InitHistogramCull(); }

CImage::CImage(const ManagerPtr& manager, DataType type, int width, int height, int planes,
               double bscale, double bzero, bool isSigned, const ProgressPtr& progress)
    : m_BitsPixel(type),
      m_signed(isSigned),
      m_nDimension(planes == 1 ? 2 : 3),
      m_axes{width, height, planes},
      m_bscale(bscale),
      m_bzero(bzero),
      m_pVmImage(std::make_unique<CVmImage>(manager, korin::BitsOf(type), width, height, planes,
                                            progress)),
      m_levelMin(PlaneCount(planes)),
      m_levelMax(PlaneCount(planes)),
      m_levelRange(PlaneCount(planes)),
      m_pHeader(std::make_unique<CHeader>()) {
  InitHistogramCull();
  CreateHistogramCull(width, height);
}

CImage::CImage(const ManagerPtr& manager, DataType type, int width, int height, int planes,
               double bscale, double bzero, bool isSigned, HWND window, const wchar_t* caption)
    : CImage(manager, type, width, height, planes, bscale, bzero, isSigned,
             korin::MakeWindowProgress(window, caption)) {}

CImage::CImage(const CImage& source, const ProgressPtr& progress) : CObject(source) {
  CopyGeometry(source);
  if (source.m_pVmImage) m_pVmImage = CopyOf(*source.m_pVmImage, progress);
  CopyDescription(source);
  m_cullRandom = source.m_cullRandom;
  // The sampling rule is the user's present one, not the source's.
  InitHistogramCull();
  CreateHistogramCull(GetWidth(), GetHeight());
}

CImage::CImage(const CImage& source, HWND window, const wchar_t* caption)
    : CImage(source, korin::MakeWindowProgress(window, caption)) {}

CImage::CImage(const CImage& source) : CImage(source, ProgressPtr()) {}

CImage::CImage(CImage&& source) noexcept = default;

CImage& CImage::operator=(const CImage& source) { return CopyImageInternal(source, {}); }

CImage& CImage::operator=(CImage&& source) noexcept {
  if (this == &source) return *this;
  CObject::operator=(source);
  m_BitsPixel = source.m_BitsPixel;
  m_signed = source.m_signed;
  m_nDimension = source.m_nDimension;
  m_axes = source.m_axes;
  m_bscale = source.m_bscale;
  m_bzero = source.m_bzero;
  m_pVmImage = std::move(source.m_pVmImage);
  m_levelMin = std::move(source.m_levelMin);
  m_levelMax = std::move(source.m_levelMax);
  m_levelRange = std::move(source.m_levelRange);
  m_ownLevel = source.m_ownLevel;
  m_saveableFormat = source.m_saveableFormat;
  m_saveableFile = source.m_saveableFile;
  m_orgFileName = std::move(source.m_orgFileName);
  m_orgFileFormat = std::move(source.m_orgFileFormat);
  m_orgBitsPixel = source.m_orgBitsPixel;
  m_orgPlanes = source.m_orgPlanes;
  m_orgBayer = source.m_orgBayer;
  m_orgHoneyComb = source.m_orgHoneyComb;
  m_orgDevelopment = source.m_orgDevelopment;
  m_orgWidth = source.m_orgWidth;
  m_orgHeight = source.m_orgHeight;
  m_bayer = source.m_bayer;
  m_honeyComb = source.m_honeyComb;
  m_rawImageBits = source.m_rawImageBits;
  m_development = source.m_development;
  m_pHeader = std::move(source.m_pHeader);
  m_cullRandom = source.m_cullRandom;
  m_histogramCullRatio = source.m_histogramCullRatio;
  m_histogramCullMin = source.m_histogramCullMin;
  m_cullX = std::move(source.m_cullX);
  m_cullY = std::move(source.m_cullY);
  return *this;
}

void CImage::Swap(CImage& other) noexcept {
  if (this == &other) return;
  CImage held(std::move(*this));
  *this = std::move(other);
  other = std::move(held);
}

CImage::~CImage() = default;

const CRuntimeClass* CImage::GetRuntimeClass() const {
  static constexpr CRuntimeClass kClass{"CImage"};
  return &kClass;
}

void CImage::Serialize(CArchive&) {}

bool CImage::AllocImage(const ManagerPtr& manager, const ProgressPtr& progress) {
  std::unique_ptr<CVmImage> store;
  try {
    store = std::make_unique<CVmImage>(manager, korin::BitsOf(m_BitsPixel), GetWidth(), GetHeight(),
                                       GetPlanes(), progress);
  } catch (const std::bad_alloc&) {
    return false;
  }
  m_pVmImage = std::move(store);
  RebuildHistogramCull();
  return true;
}

bool CImage::AllocImage(const ManagerPtr& manager, HWND window, const wchar_t* caption) {
  return AllocImage(manager, korin::MakeWindowProgress(window, caption));
}

bool CImage::AllocImage(const ProgressPtr& progress) {
  const auto manager = VmManager();
  return manager && AllocImage(manager, progress);
}

bool CImage::AllocImage(HWND window, const wchar_t* caption) {
  return AllocImage(korin::MakeWindowProgress(window, caption));
}

void CImage::EmptyImage() { m_pVmImage.reset(); }

void CImage::Empty() {
  m_pVmImage.reset();
  m_levelMin.clear();
  m_levelMax.clear();
  m_levelRange.clear();
  if (m_pHeader) m_pHeader->DeleteAll(nullptr);
}

bool CImage::IsOnMemory() const { return !m_pVmImage || m_pVmImage->IsOnMemory(); }

bool CImage::Unlock(const CVmImage::AddressHandle& addressHandle) {
  return m_pVmImage && m_pVmImage->Unlock(addressHandle);
}

void CImage::UnlockAll() {
  if (m_pVmImage) m_pVmImage->UnlockAll();
}

std::unique_ptr<CImage> CImage::Clone(const ProgressPtr& progress) const {
  return std::make_unique<CImage>(*this, progress);
}

std::unique_ptr<CImage> CImage::Clone(HWND window, const wchar_t* caption) const {
  return Clone(korin::MakeWindowProgress(window, caption));
}

bool CImage::Create(const CImage& source, const ProgressPtr& progress) {
  std::unique_ptr<CVmImage> store;
  if (source.m_pVmImage) {
    const auto manager = korin::RequireManager(source);
    if (this == &source && HasShapeOfStore(*this)) {
      // New contents are whatever the store holds: an image made after itself keeps its own.
      RebuildHistogramCull();
      return true;
    }
    store =
        std::make_unique<CVmImage>(manager, korin::BitsOf(source.m_BitsPixel), source.GetWidth(),
                                   source.GetHeight(), source.GetPlanes(), progress);
  }
  CopyGeometry(source);
  m_pVmImage = std::move(store);
  if (!m_pVmImage) return false;
  CopyDescription(source);
  m_cullRandom = source.m_cullRandom;
  m_histogramCullRatio = source.m_histogramCullRatio;
  m_histogramCullMin = source.m_histogramCullMin;
  RebuildHistogramCull();
  return true;
}

bool CImage::Create(const CImage& source, HWND window, const wchar_t* caption) {
  return Create(source, korin::MakeWindowProgress(window, caption));
}

std::unique_ptr<CImage> CImage::CloneWithoutImage(const ProgressPtr& progress) const {
  auto clone = std::make_unique<CImage>();
  if (!clone->Create(*this, progress)) return nullptr;
  return clone;
}

std::unique_ptr<CImage> CImage::CloneWithoutImage(HWND window, const wchar_t* caption) const {
  return CloneWithoutImage(korin::MakeWindowProgress(window, caption));
}

std::unique_ptr<CImage> CImage::CloneWithoutImage(DataType type,
                                                  const ProgressPtr& progress) const {
  if (!m_pVmImage) {
    korin::platform::WriteErrorLine("m_pVmImage is nullptr");
    return nullptr;
  }
  const auto manager = korin::RequireManager(*this);
  try {
    auto clone = std::make_unique<CImage>();
    clone->CopyGeometry(*this);
    clone->m_BitsPixel = type;
    clone->m_pVmImage = std::make_unique<CVmImage>(manager, korin::BitsOf(type), GetWidth(),
                                                   GetHeight(), GetPlanes(), progress);
    clone->CopyDescription(*this);
    clone->m_cullRandom = m_cullRandom;
    clone->m_histogramCullRatio = m_histogramCullRatio;
    clone->m_histogramCullMin = m_histogramCullMin;
    clone->RebuildHistogramCull();
    return clone;
  } catch (const std::bad_alloc&) {
    korin::platform::WriteErrorLine("std::bad_alloc occurred.");
    return nullptr;
  }
}

std::unique_ptr<CImage> CImage::CloneWithoutImage(DataType type, HWND window,
                                                  const wchar_t* caption) const {
  return CloneWithoutImage(type, korin::MakeWindowProgress(window, caption));
}

bool CImage::CopyImage(const CImage& source, const ProgressPtr& progress) {
  CopyImageInternal(source, progress);
  return true;
}

bool CImage::CopyImage(const CImage& source, HWND window, const wchar_t* caption) {
  return CopyImage(source, korin::MakeWindowProgress(window, caption));
}

CImage& CImage::CopyImageInternal(const CImage& source, const ProgressPtr& progress) {
  if (this != &source) {
    CopyGeometry(source);
    // The old pixels go first: two stores need not fit side by side. Whatever
    // fails after that leaves an empty image, never a store without pixels.
    m_pVmImage.reset();
    if (source.m_pVmImage) m_pVmImage = CopyOf(*source.m_pVmImage, progress);
    CopyDescription(source);
    m_cullRandom = source.m_cullRandom;
    m_histogramCullRatio = source.m_histogramCullRatio;
    m_histogramCullMin = source.m_histogramCullMin;
  }
  // Also for the image itself: every copy continues the random sequence.
  RebuildHistogramCull();
  return *this;
}

void CImage::CopyGeometry(const CImage& source) {
  m_BitsPixel = source.m_BitsPixel;
  m_signed = source.m_signed;
  m_nDimension = source.m_nDimension;
  m_axes = source.m_axes;
  m_bscale = source.m_bscale;
  m_bzero = source.m_bzero;
}

void CImage::CopyDescription(const CImage& source) {
  m_levelMin = source.m_levelMin;
  m_levelMax = source.m_levelMax;
  m_levelRange = source.m_levelRange;
  m_ownLevel = source.m_ownLevel;
  m_saveableFormat = source.m_saveableFormat;
  m_saveableFile = source.m_saveableFile;
  m_orgFileName = source.m_orgFileName;
  m_orgFileFormat = source.m_orgFileFormat;
  m_orgBitsPixel = source.m_orgBitsPixel;
  m_orgPlanes = source.m_orgPlanes;
  m_orgBayer = source.m_orgBayer;
  m_orgHoneyComb = source.m_orgHoneyComb;
  m_orgDevelopment = source.m_orgDevelopment;
  m_orgWidth = source.m_orgWidth;
  m_orgHeight = source.m_orgHeight;
  Header() = source.Header();
  m_bayer = source.m_bayer;
  m_honeyComb = source.m_honeyComb;
  m_rawImageBits = source.m_rawImageBits;
  m_development = source.m_development;
}
