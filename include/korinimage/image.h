#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "korinimage/export.h"
#include "korinimage/header.h"
#include "korinimage/object.h"
#include "korinimage/progress.h"
#include "korinimage/types.h"
#include "korinimage/vm_image.h"
#include "korinimage/vm_manager.h"

// One image: width x height x planes pixels of one numeric type in a paged store,
// a linear scaling to physical values (physical = stored x BSCALE + BZERO),
// display levels per plane, a FITS header and a description of its source.
//
// Thread rule: no locks; one thread at a time changes or measures an image.
// Different images of one manager may be used by different threads.
//
// Every long operation exists twice: with a progress sink (may be empty), and
// with a window handle and caption, which builds a korin::ProgressWin that sends
// to that window (null window: no reporting).
//
// Errors, unless a member says otherwise: korin::CVmManagerHandleDeletedError when
// pixels are needed but the image is empty or its manager is gone;
// korin::CVmMemoryAllocationError when a block cannot be brought into memory, a
// plane index is outside the store, or the attributes (type, size) no longer fit
// the store because they were set without it.
class KORINIMAGE_API CImage : public CObject {
 public:
  // FITS BITPIX. Any other value means "unknown": 0 bits per pixel.
  enum DataType : std::int32_t {
    DataTypeUnknown = 0,
    DataTypeInt8 = 8,     // always unsigned
    DataTypeInt16 = 16,   // signed or unsigned by the signed flag
    DataTypeInt32 = 32,   // likewise
    DataTypeFloat = -32,  // IEEE single
    DataTypeDouble = -64  // IEEE double
  };
  // Pixel type of the source file, in the caller's own code; stored, never read.
  enum SourceType : std::int32_t {};
  // How ChangeBits maps values onto an integer type; any other value: Automatic.
  enum class ChangeBitsLevel : std::int32_t {
    Raw = 0,        // keep physical values, shift and clip
    Automatic = 1,  // Raw when IsBitsChangeable, else Cooked
    Cooked = 2,     // each plane's display levels onto the whole range
    MinMax = 3,     // the data's minimum and maximum onto the whole range
  };
  using ProgressPtr = std::shared_ptr<korin::Progress>;
  using ManagerPtr = std::shared_ptr<CVmManager>;

  // --- life -----------------------------------------------------------------

  // Empty: DataType unknown, sizes 0, no store.
  CImage();
  // An image of zeros. Throws korin::CVmMemoryAllocationError when there is no room.
  CImage(const ManagerPtr& manager, DataType type, int width, int height, int planes, double bscale,
         double bzero, bool isSigned, const ProgressPtr& progress);
  CImage(const ManagerPtr& manager, DataType type, int width, int height, int planes, double bscale,
         double bzero, bool isSigned, HWND window, const wchar_t* caption);
  // Copies with pixels. The histogram sampling settings are read anew.
  CImage(const CImage& source, const ProgressPtr& progress);
  CImage(const CImage& source, HWND window, const wchar_t* caption);
  CImage(const CImage& source);
  // The source is left as an empty image with an empty header.
  CImage(CImage&& source) noexcept;
  CImage& operator=(const CImage& source);
  CImage& operator=(CImage&& source) noexcept;
  void Swap(CImage& other) noexcept;
  ~CImage() override;

  const CRuntimeClass* GetRuntimeClass() const override;
  void Serialize(CArchive& archive) override;  // does nothing: images are not serialised

  // A new store of zeros for the current type and size; the old one is dropped
  // when it is complete. False, with the old store kept, when memory is refused.
  // The first form's manager is used; the others use the image's own and return
  // false when there is none.
  bool AllocImage(const ManagerPtr& manager, const ProgressPtr& progress);
  bool AllocImage(const ManagerPtr& manager, HWND window, const wchar_t* caption);
  bool AllocImage(const ProgressPtr& progress);
  bool AllocImage(HWND window, const wchar_t* caption);
  void EmptyImage();  // drops the store only
  void Empty();       // drops the store, the levels and all header cards
  bool IsEmpty() const { return m_pVmImage == nullptr; }
  bool IsOnMemory() const;  // no block lies in the swap file only; true when empty
  bool Unlock(const CVmImage::AddressHandle& addressHandle);
  void UnlockAll();

  std::unique_ptr<CImage> Clone(const ProgressPtr& progress) const;
  std::unique_ptr<CImage> Clone(HWND window, const wchar_t* caption) const;
  // Takes over all attributes of the source, with a new store of zeros of its
  // shape. False for a source without store (type, size and scaling are taken over
  // all the same); throws, with this image unchanged, when the source's manager is
  // gone or memory is refused.
  bool Create(const CImage& source, const ProgressPtr& progress);
  bool Create(const CImage& source, HWND window, const wchar_t* caption);
  // A new image like this one with a store of zeros; null when that fails.
  std::unique_ptr<CImage> CloneWithoutImage(const ProgressPtr& progress) const;
  std::unique_ptr<CImage> CloneWithoutImage(HWND window, const wchar_t* caption) const;
  // The same with another type; levels are copied unchanged. Null, with a line to
  // standard error, when there is no store to follow or memory is refused.
  std::unique_ptr<CImage> CloneWithoutImage(DataType type, const ProgressPtr& progress) const;
  std::unique_ptr<CImage> CloneWithoutImage(DataType type, HWND window,
                                            const wchar_t* caption) const;
  // Becomes a copy of the source. Always true; on an exception the image is empty.
  bool CopyImage(const CImage& source, const ProgressPtr& progress);
  bool CopyImage(const CImage& source, HWND window, const wchar_t* caption);

  // --- attributes -----------------------------------------------------------

  DataType GetBitsPixel() const { return m_BitsPixel; }
  void SetBitsPixel(DataType type) { m_BitsPixel = type; }  // changes no pixel
  int GetBytesPixel() const;                                // 0 for an unknown type
  bool IsSigned() const { return m_signed; }
  void SetSigned(bool isSigned) { m_signed = isSigned; }
  // 2: one plane, 3: otherwise, -1: no size yet.
  int GetDimension() const { return m_nDimension; }
  const std::array<std::int32_t, 3>& GetAxes() const { return m_axes; }  // width, height, planes
  int GetWidth() const { return m_axes[0]; }
  int GetHeight() const { return m_axes[1]; }
  int GetPlanes() const { return m_axes[2]; }
  // These three change the attribute only: no store and no levels.
  void SetWidth(int width) { m_axes[0] = width; }
  void SetHeight(int height) { m_axes[1] = height; }
  void SetPlanes(int planes);
  double GetBscale() const { return m_bscale; }
  void SetBscale(double bscale) { m_bscale = bscale; }
  double GetBzero() const { return m_bzero; }
  void SetBzero(double bzero) { m_bzero = bzero; }
  bool IsSaveableFormat() const { return m_saveableFormat; }
  void SetSaveableFormat(bool saveable) { m_saveableFormat = saveable; }
  bool IsSaveableFile() const { return m_saveableFile; }
  void SetSaveableFile(bool saveable) { m_saveableFile = saveable; }
  const std::wstring& GetOrgFileName() const { return m_orgFileName; }
  void SetOrgFileName(const wchar_t* name);  // null: empty
  void SetOrgFileName(const std::wstring& name) { m_orgFileName = name; }
  void SetOrgFileName(std::wstring_view name) { m_orgFileName = name; }
  const std::wstring& GetOrgFileFormat() const { return m_orgFileFormat; }
  void SetOrgFileFormat(const wchar_t* format);  // null: empty
  void SetOrgFileFormat(const std::wstring& format) { m_orgFileFormat = format; }
  void SetOrgFileFormat(std::wstring_view format) { m_orgFileFormat = format; }
  SourceType GetOrgBitsPixel() const { return m_orgBitsPixel; }
  void SetOrgBitsPixel(SourceType type) { m_orgBitsPixel = type; }
  int GetOrgWidth() const { return m_orgWidth; }
  void SetOrgWidth(int width) { m_orgWidth = width; }
  int GetOrgHeight() const { return m_orgHeight; }
  void SetOrgHeight(int height) { m_orgHeight = height; }
  int GetOrgPlanes() const { return m_orgPlanes; }
  void SetOrgPlanes(int planes) { m_orgPlanes = planes; }
  bool IsBayerImage() const { return m_bayer; }
  void SetBayerImage(bool bayer) { m_bayer = bayer; }
  bool IsHoneyCombImage() const { return m_honeyComb; }
  void SetHoneyCombImage(bool honeyComb) { m_honeyComb = honeyComb; }
  bool IsDevelopmentImage() const { return m_development; }
  void SetDevelopmentImage(bool development) { m_development = development; }
  bool IsOrgBayerImage() const { return m_orgBayer; }
  void SetOrgBayerImage(bool bayer) { m_orgBayer = bayer; }
  bool IsOrgHoneyCombImage() const { return m_orgHoneyComb; }
  void SetOrgHoneyCombImage(bool honeyComb) { m_orgHoneyComb = honeyComb; }
  bool IsOrgDevelopmentImage() const { return m_orgDevelopment; }
  void SetOrgDevelopmentImage(bool development) { m_orgDevelopment = development; }
  int GetRawImageBits() const { return m_rawImageBits; }
  void SetRawImageBits(int bits) { m_rawImageBits = bits; }

  bool IsColor() const { return m_nDimension > 2; }
  // True when the header names no camera model.
  bool IsCcd() const;
  // width x height x planes in 32 bits: it wraps. GetImageSize is exact.
  std::int32_t GetPixelCount() const;
  std::int64_t GetImageSize() const;  // bytes of all pixels
  std::int64_t GetLinesPerBlock() const;
  std::int64_t GetBlockCount() const;
  std::pair<std::int64_t, std::int64_t> GetBlockShape() const;  // (width, lines of block 0)
  ManagerPtr VmManager() const;  // empty when there is no store or its manager is gone
  CVmManager::AllocationPolicy GetAllocationPolicy() const;
  double ApplyBaseScaleOffset(double value) const { return value * m_bscale + m_bzero; }
  // The inverse; not guarded: BSCALE 0 gives an infinity or NaN.
  double UnapplyBaseScaleOffset(double value) const { return (value - m_bzero) / m_bscale; }

  // The header belongs to the image and lives as long.
  CHeader& Header();
  const CHeader& Header() const;
  // The pixel store, null for an empty image; it belongs to the image.
  CVmImage* Store() { return m_pVmImage.get(); }
  const CVmImage* Store() const { return m_pVmImage.get(); }

  // --- display levels: physical values shown as black and white, per plane -----

  const std::vector<double>& GetLevelMin() const { return m_levelMin; }
  const std::vector<double>& GetLevelMax() const { return m_levelMax; }
  const std::vector<double>& GetLevelRange() const { return m_levelRange; }
  std::vector<double>& LevelMinRef() { return m_levelMin; }
  std::vector<double>& LevelMaxRef() { return m_levelMax; }
  std::vector<double>& LevelRangeRef() { return m_levelRange; }
  // 0.0 for a plane without an entry.
  double GetLevelMin(int plane) const;
  double GetLevelMax(int plane) const;
  double GetLevelRange(int plane) const;
  bool AllocLevel();       // (0, 1, 1) for every plane
  bool SetDefaultLevel();  // the plane's physical extremes, span at least 1 on a flat plane
  // A maximum not above the minimum becomes minimum + 1. False for a plane
  // without an entry. Levels that were never made are made first.
  bool SetLevel(int plane, double min, double max);
  bool SetLevelMin(int plane, double min);
  bool SetLevelMax(int plane, double max);
  bool HasOwnLevel() const { return m_ownLevel; }
  void SetOwnLevel(bool own) { m_ownLevel = own; }

  // --- histogram sampling: a random grid of columns and rows --------------------

  void InitHistogramCull();  // ratio and minimum from the settings, section "ChannelPalette"
  // ratio at least 1.0, min (samples wanted) at least 786432.
  void SetHistogramCullParam(double ratio, unsigned int min);
  bool IsHistogramCullParam() const;
  // How many entries of the column and row tables to take; empty: no sampling.
  std::optional<std::pair<std::int32_t, std::int32_t>> GetHistogramCull() const;
  bool GetHistogramCull(int* x, int* y) const;  // false: a null pointer or no sampling
  std::vector<std::int32_t>& GetHistogramCullXRef() { return m_cullX; }
  std::vector<std::int32_t>& GetHistogramCullYRef() { return m_cullY; }

  // --- statistics: of one plane, or of all planes for a negative plane -----------
  //
  // Under an allocation policy other than Blocks the kernels run and Raw results
  // are stored values. Under policy Blocks rows are measured in physical values:
  // there the Raw members answer physical values already and the physical members
  // apply the scaling once more. The two agree when BSCALE is 1 and BZERO 0.
  // Minimum and maximum skip NaN; average and deviation propagate it. A type
  // outside the five gives zeros.

  std::tuple<double, double> GetMinMaxRaw(int plane) const;
  std::tuple<double, double> GetMinMax(int plane) const;
  void GetMinMax(int plane, double* min, double* max) const;
  std::tuple<double, double, double> GetMinMaxAvrRaw(int plane) const;
  std::tuple<double, double, double> GetMinMaxAvr(int plane) const;
  void GetMinMaxAvr(int plane, double* min, double* max, double* average) const;
  // (min, max, mode) in Raw values: the fullest of bins x subdivision fine bins
  // within the fullest of `bins` coarse ones.
  std::tuple<double, double, double> GetMinMaxMode(int plane, int bins, int subdivision) const;
  void GetMinMaxMode(int plane, double* min, double* max, double* mode, int bins,
                     int subdivision) const;
  double GetAverageRaw(int plane) const;
  double GetAverage(int plane) const;
  // Population deviation by the moment formula; NaN when rounding makes the
  // variance negative.
  double GetStdDevRaw(int plane) const;
  double GetStdDevRaw(int plane, double mean) const;
  double GetStdDev(int plane) const;
  double GetStdDev(int plane, double mean) const;
  // Counts per bin; pixels outside the bins are not counted; bins <= 0: empty. More
  // than 2^29 - 1 bins, also of a mode: korin::CKorinImageBadAllocException.
  std::vector<std::int32_t> HistogramRaw(int plane, int bins) const;
  std::vector<std::int32_t> HistogramRaw(int plane, double min, double max, int bins) const;
  std::vector<std::int32_t> Histogram(int plane, int bins) const;
  std::vector<std::int32_t> Histogram(int plane, double min, double max, int bins) const;
  // Physical value of one pixel. 16-bit pixels are read unsigned, whatever the flag.
  double GetPixel(int x, int y, int plane) const;
  double GetPixel(const BYTE* address) const;

  // --- size, planes, fill ---------------------------------------------------------

  // A new store of zeros; pixels are not kept. False, image unchanged, when memory
  // is refused. The current size: true, nothing happens.
  bool ChangeSize(int width, int height, const ProgressPtr& progress);
  bool ChangeSize(int width, int height, HWND window, const wchar_t* caption);
  // Likewise; levels become (0, 1, 1). When memory is refused it throws, with the
  // new plane count beside the old store.
  bool ChangePlanes(int planes, const ProgressPtr& progress);
  bool ChangePlanes(int planes, HWND window, const wchar_t* caption);
  // Sets every pixel of a plane (negative: of all) to a stored value. Integers take
  // the low bits of the value truncated. False for an unknown type or when a kernel
  // fails. Then, and when a block finds no room and it throws, rows not set hold their
  // former pixels or zeros; rows before them are set.
  bool Fill(int plane, double value);
  // A double image holding physical values; it keeps BSCALE and BZERO. Null when
  // no store can be made.
  std::unique_ptr<CImage> ScalingAppliedImage(const ProgressPtr& progress = {}) const;
  std::unique_ptr<CImage> ScalingAppliedImage(HWND window, const wchar_t* caption) const;

  // --- bit depth --------------------------------------------------------------------

  // Makes this image the conversion of `source` (null: of itself). True at once
  // when this image already has the type. False for an unknown type, for an image
  // without pixels or manager, or when memory is refused. Integer results rewrite
  // BSCALE and BZERO; NaN becomes the highest code. `isSigned` matters for 16 and 32
  // bits. Raw stores physical values but keeps BSCALE (and BZERO but for the shift):
  // with a scaling other than 1 and 0 they are scaled again when read. Under an
  // allocation policy other than Blocks a block of the result must find room beside
  // its source block: where it does not, an integer conversion answers true and
  // leaves zeros of the new type.
  bool ChangeBits(const CImage* source, DataType type, bool isSigned, ChangeBitsLevel level,
                  const ProgressPtr& progress);
  bool ChangeBits(const CImage* source, DataType type, bool isSigned, ChangeBitsLevel level,
                  HWND window, const wchar_t* caption);
  bool ChangeBits(DataType type, bool isSigned, ChangeBitsLevel level, const ProgressPtr& progress);
  bool ChangeBits(DataType type, bool isSigned, ChangeBitsLevel level, HWND window,
                  const wchar_t* caption);
  // True when the span of the display levels is at most 2^bits of the type.
  bool IsBitsChangeable(DataType type, bool isSigned) const;
  bool IsBitsChangeableRaw(DataType type, const std::vector<double>& levelMin,
                           const std::vector<double>& levelMax, bool isSigned) const;

  // --- bitmaps ----------------------------------------------------------------------

  // Becomes an 8-bit image of a packed bitmap (1 to 32 bits, run-length encoded or
  // not): one plane when it is grey, else red, green, blue. The handle stays the
  // caller's, unchanged. An empty manager means the image's own. False, image
  // unchanged, for a bitmap that is damaged or of an unsupported kind.
  bool AttachDIB(const ManagerPtr& manager, HDIB dib, HWND window, const wchar_t* caption);
  bool AttachDIB(const ManagerPtr& manager, HDIB dib, const ProgressPtr& progress);

 protected:
  bool CreateHistogramCull(int width, int height);
  void DeleteHistogramCull();
  std::int32_t GetHistogramCullRAND(int count);

 private:
  CImage& CopyImageInternal(const CImage& source, const ProgressPtr& progress);
  void CopyGeometry(const CImage& source);
  void CopyDescription(const CImage& source);
  void RebuildHistogramCull();
  bool ChangeBitsToReal(const CImage* source, DataType type, const ProgressPtr& progress);
  bool ChangeBitsToInt(const CImage* source, DataType type, bool isSigned, ChangeBitsLevel level,
                       const ProgressPtr& progress);
  void ChangeBitsToIntRaw(const CImage* source, DataType type, bool isSigned,
                          const ProgressPtr& progress);
  void ChangeBitsToIntCooked(const CImage* source, DataType type, bool isSigned,
                             const ProgressPtr& progress);
  void ChangeBitsToIntMinMax(const CImage* source, DataType type, bool isSigned,
                             const ProgressPtr& progress);
  void NormalizeTo(const CImage* source, DataType type, bool isSigned,
                   std::vector<std::pair<double, double>> levels, const ProgressPtr& progress);
  void TakeConversion(CImage&& converted, int rebuilds);
  void InstallUnconverted(const CImage* source, DataType type, bool isSigned,
                          const ProgressPtr& progress);

  DataType m_BitsPixel = DataTypeUnknown;
  bool m_signed = true;
  std::int32_t m_nDimension = -1;
  std::array<std::int32_t, 3> m_axes{};
  double m_bscale = 1.0;
  double m_bzero = 0.0;
  std::unique_ptr<CVmImage> m_pVmImage;
  std::vector<double> m_levelMin;
  std::vector<double> m_levelMax;
  std::vector<double> m_levelRange;
  bool m_ownLevel = false;
  bool m_saveableFormat = false;
  bool m_saveableFile = false;
  std::wstring m_orgFileName;
  std::wstring m_orgFileFormat;
  SourceType m_orgBitsPixel = SourceType{};
  std::int32_t m_orgPlanes = 0;
  bool m_orgBayer = false;
  bool m_orgHoneyComb = false;
  bool m_orgDevelopment = false;
  std::int32_t m_orgWidth = 0;
  std::int32_t m_orgHeight = 0;
  bool m_bayer = false;
  bool m_honeyComb = false;
  std::int32_t m_rawImageBits = 12;  // a common raw sensor depth
  bool m_development = false;
  std::unique_ptr<CHeader> m_pHeader;  // null only in a moved-from image
  std::mt19937 m_cullRandom;
  double m_histogramCullRatio = 4.0;
  std::uint64_t m_histogramCullMin = 786432;
  std::vector<std::int32_t> m_cullX;
  std::vector<std::int32_t> m_cullY;
};
