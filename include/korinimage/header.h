#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "korinimage/export.h"
#include "korinimage/object.h"
#include "korinimage/types.h"

namespace korin {

// An argument that no call may pass, such as a negative card index.
class KORINIMAGE_API CInvalidArgException : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
  ~CInvalidArgException() override;
};

}  // namespace korin

// The FITS header of one image: an ordered list of 80-column text cards, and the
// camera fields that have no card of their own.
//
// Cards. A card is wide text of at most 80 columns: keyword in columns 1-8,
// "= " in columns 9-10 of a value card, the value from column 11, an optional
// comment behind "/". The store never checks that layout. Every card that comes in
// is cut to the first 80 bytes of its form in the process's single-byte code page
// (UTF-8 on POSIX); characters that form lacks become "?".
//
// Keywords. A key is cut or blank-padded to 8 characters and compared, case
// included, with the first 8 characters of each card; the first card that matches
// counts. A card shorter than 8 characters matches no key, so readers of files
// keep their cards padded ("END" alone is not found). An empty key matches cards
// whose keyword field is blank.
//
// Numbers. The numeric getters here read from column 12 of a card, which is right
// for fixed-format cards (numbers right-justified to column 30) and misreads
// free-format ones: "EXPTIME = 30.0" gives 0 and "= -20.5" gives 20.5. Whoever
// needs the numbers of arbitrary files takes them from the FITS library that reads
// the file. Integers: leading white space, one sign, decimal digits; saturated to
// the range of int. Reals: leading white space, [sign] digits [. digits], with an
// exponent after e, E, d or D; beyond the range of double they become an infinity
// or zero; hexadecimal forms, "inf" and "nan" are no numbers. Reading stops at the
// first character that cannot continue; a text without a number is 0.
//
// Text parameters of type const wchar_t* may be null, which means empty text.
// Pointers returned stay valid until the field is set again or the header dies.
//
// Failures: a negative index throws korin::CInvalidArgException, exhausted memory
// an exception of the std::bad_alloc family; after either the header is unchanged.
// Nothing else throws. Look-ups report absence by -1 or 0.
//
// Thread rule: no locks; one header is used by one thread at a time.
class KORINIMAGE_API CHeader : public CObject {
 public:
  // InsertAt pads the list only up to this many cards.
  static constexpr int kMaxPaddedCards = 1048576;

  // An empty header; every field "not set".
  CHeader() noexcept = default;
  // A copy of *other; an empty header for null.
  explicit CHeader(const CHeader* other);
  CHeader(const CHeader& other);
  CHeader& operator=(const CHeader& other);
  // The header moved from is left empty, every field "not set".
  CHeader(CHeader&& other) noexcept;
  CHeader& operator=(CHeader&& other) noexcept;
  ~CHeader() override;

  const CRuntimeClass* GetRuntimeClass() const override;

  // Replaces all cards and fields by copies of other's and returns *this. Null and
  // the header itself change nothing.
  CHeader& CopyData(const CHeader* other);
  // Exchanges all cards and fields.
  void Swap(CHeader& other) noexcept;

  // ---- Cards. Indexes count from 0.

  // Appends a card.
  void Add(const wchar_t* card);
  // Inserts a card before index i. Beyond the end the list first grows to i empty
  // cards; an i of kMaxPaddedCards or more that would grow the list throws
  // korin::CKorinImageBadAllocException.
  void InsertAt(int i, const wchar_t* card);
  // Replaces card i; does nothing beyond the end.
  void SetAt(int i, const wchar_t* card);
  // A copy of card i; empty beyond the end.
  std::wstring GetAt(int i) const;
  // Removes card i and returns 1; beyond the end returns 0.
  int DeleteAt(int i);
  // Removes every card that matches the key, together with the cards directly
  // behind it that begin with ten blanks (continuations without a keyword). A null
  // key removes all cards.
  void DeleteAll(const wchar_t* key = nullptr);
  // Index of the first card that matches the key; -1 when there is none or the
  // key is null.
  int Find(const wchar_t* key) const;
  int GetCount() const;

  // The number on the first card that matches the key. 1: found (a value that is
  // no number is 0); 0: absent, `value` untouched.
  int GetHeaderInt(const wchar_t* key, int& value) const;
  int GetHeaderDouble(const wchar_t* key, double& value) const;

  // ---- Camera fields without a card.

  const wchar_t* GetCameraMaker() const;
  void SetCameraMaker(const wchar_t* maker);
  const wchar_t* GetCameraModel() const;
  void SetCameraModel(const wchar_t* model);
  const wchar_t* GetLightSource() const;
  void SetLightSource(const std::wstring& source);
  std::uint16_t GetISO() const;  // ISO speed; 0: not set
  void SetISO(std::uint16_t iso);
  std::int32_t GetCFAPattern() const;  // colour-filter pattern code
  void SetCFAPattern(std::int32_t pattern);
  std::optional<float> GetGain() const;  // sensor gain
  void SetGain(float gain);
  std::optional<float> GetTemperature() const;  // sensor temperature, degrees Celsius
  void SetTemperature(float temperature);

  // White-balance gains while shooting; nonzero flag: they are valid. An index
  // outside 0-3 (Bayer) or 0-7 (HoneyComb) reads 1.0 and writes nothing. The forms
  // with an array take all 4 or 8 values; a null array is ignored.
  std::int32_t IsWBShootingGain() const;
  void SetWBShootingGain(std::int32_t flag);
  double GetWBShootingGainBayer(int index) const;
  void GetWBShootingGainBayer(double* gains) const;
  void SetWBShootingGainBayer(int index, double gain);
  void SetWBShootingGainBayer(const double* gains);
  double GetWBShootingGainHoneyComb(int index) const;
  void GetWBShootingGainHoneyComb(double* gains) const;
  void SetWBShootingGainHoneyComb(int index, double gain);
  void SetWBShootingGainHoneyComb(const double* gains);

  // Exposure time in seconds. It is kept either as q/1 or, below a second, as
  // 1/q, by plain IEEE division (a time of 0 is kept as 1 over infinity). A
  // numerator of -1 or less, a denominator of 0 or less, or NaN means "not set".
  void SetExposureShutterSpeed(const tagFRational& seconds);
  void GetExposureShutterSpeed(tagFRational& seconds) const;
  // "30 sec." or "1/250 sec.", the number truncated and saturated to int; empty
  // when not set.
  void GetExposureShutterSpeed(std::wstring& text) const;
  // Aperture as a focal ratio; kept as given unless the denominator is not above
  // 0, which means "not set".
  void SetExposureFNumber(const tagFRational& ratio);
  void GetExposureFNumber(tagFRational& ratio) const;
  // "f/8.0", one decimal; empty when not set.
  void GetExposureFNumber(std::wstring& text) const;
  // Focal length in millimetres; kept like the aperture.
  void SetFocalLength(const tagFRational& length);
  void GetFocalLength(tagFRational& length) const;

  // ---- Observation metadata, read from and written to the cards.
  //
  // All return 1 on success and 0 when a needed card is missing, a separator is
  // not where the form wants it, or the result leaves the years -4712 to 9999; the
  // out value is then not to be relied on.
  //
  // Dates are read from the text of "DATE-OBS" behind its opening quote:
  // year-month-day, years below 100 meaning 1970-2069. The first source that is
  // present gives the time, even if it turns out to be broken: a card of its own
  // ("UT-STR" for the start, "UT-END" for the end), the text behind a "T" in
  // "DATE-OBS", "UT", "TIME-OBS". Out-of-range parts carry (month 13 is January of
  // the next year). Times are UTC in the Gregorian calendar; Julian Dates are
  // exact to 50 microseconds over the years 1900-2100.

  // Start of the exposure.
  int GetDateTime(tagADATE& date) const;
  int GetDateTime(double& jd) const;
  // End of the exposure: "UT-END" on the date of "DATE-OBS" (an exposure across
  // midnight therefore ends a day early, before its start), else the time plus
  // "EXPTIME" seconds; "UT-STR" is not looked at.
  int GetEndDateTime(tagADATE& date) const;
  int GetEndDateTime(double& jd) const;
  // Middle between start and end, on a grid of 0.1 ms; needs both.
  int GetMidDateTime(tagADATE& date) const;
  int GetMidDateTime(double& jd) const;
  // Start and middle in the standard time of the system's zone, daylight saving
  // left out; the record's time zone is set.
  int GetDateTimeByLst(tagADATE& date) const;
  int GetMidDateTimeByLst(tagADATE& date) const;

  // Numbers of "EXPTIME" (seconds), "F-RATIO" and "FOC-LEN", from column 12.
  int GetExposureTime(double& seconds) const;
  int GetFRatio(double& ratio) const;
  int GetFocLen(double& length) const;
  // Detector temperature in degrees Celsius: "DET-TMP" (Kelvin, from column 12),
  // else "CCD-TEMP" (degrees Celsius, from column 11).
  int GetCoolingTemperature(double& celsius) const;
  // Detector name: up to 20 characters from column 12 of "INSTRUME", else of
  // "DETECTOR", without quotes and outer blanks; a comment that begins within
  // them stays, its "/" blanked.
  int GetDetector(std::wstring& name) const;

  // Writes the time and exposure cards "DATE-OBS", "UT", "EXPTIME", "EXP1TIME" and
  // "COADD" (and "UT-STR", "UT-END" in start-end mode): present ones are replaced
  // where they stand, others appended or inserted behind their predecessor.
  //   start, end: Julian Dates (UTC); exposure, exposure1: seconds in all and of a
  //   single exposure; coadd: number of single exposures.
  // Settings of section "IO", read at each call: "FitsUT-STR_END" nonzero is
  // start-end mode (the start is the card time), else the card time is the middle
  // minus half the exposure; "FitsSecFrac" nonzero prints seconds with one decimal
  // (59.96 as 60.0, without a carry), else whole seconds, rounded. Rounding up to
  // midnight leaves the old date in "DATE-OBS". Outside start-end mode "UT-STR"
  // and "UT-END" cards of an earlier call stay, and win when read.
  // Returns 0, the header unchanged, for a card time before 1900, for a date
  // outside the years -4712 to 9999, for values that are not finite, and for
  // exposures that do not fit a number field of 20 columns.
  int SetMidDateTime(double start, double end, double exposure, int coadd, double exposure1);

 private:
  std::vector<std::wstring> m_aCards;
  tagFRational m_ShutterSpeed;
  tagFRational m_FNumber;
  std::uint16_t m_nISO = 0;
  std::wstring m_strLightSource;
  tagFRational m_FocalLength;
  std::wstring m_strCameraMaker;
  std::wstring m_strCameraModel;
  std::int32_t m_bWBShootingGain = 0;
  double m_dWBShootingGainBayer[4] = {1.0, 1.0, 1.0, 1.0};
  double m_dWBShootingGainHoneyComb[8] = {1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0};
  std::int32_t m_nCFAPattern = 0;
  std::optional<float> m_fGain;
  std::optional<float> m_fTemperature;
};

// For unqualified swap.
inline void swap(CHeader& a, CHeader& b) noexcept { a.Swap(b); }
