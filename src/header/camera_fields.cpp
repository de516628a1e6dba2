// The camera fields of CHeader that have no card of their own.
#include <algorithm>
#include <iterator>
#include <utility>

#include "header/number_text.h"
#include "korinimage/header.h"

using korin::header::FormatFixed;
using korin::header::FormatInt;
using korin::header::SaturateToInt;

namespace {

constexpr tagFRational kNotSet = {};

// Built aside, so that a failed allocation leaves the field, and so that a field
// may be set from its own text.
void SetText(std::wstring& field, const wchar_t* text) {
  std::wstring copy(text == nullptr ? L"" : text);
  field.swap(copy);
}

bool IsSet(const tagFRational& r) { return r.numerator > -1.0 && r.denominator > 0.0; }

tagFRational Checked(const tagFRational& r) { return r.denominator > 0.0 ? r : kNotSet; }

template <std::size_t N>
double GainAt(const double (&gains)[N], int index) {
  return index >= 0 && index < static_cast<int>(N) ? gains[index] : 1.0;
}

template <std::size_t N>
void SetGainAt(double (&gains)[N], int index, double gain) {
  if (index >= 0 && index < static_cast<int>(N)) gains[index] = gain;
}

template <std::size_t N>
void CopyGains(const double* from, double* to) {
  if (from != nullptr && to != nullptr) std::copy_n(from, N, to);
}

}  // namespace

const wchar_t* CHeader::GetCameraMaker() const { return m_strCameraMaker.c_str(); }
void CHeader::SetCameraMaker(const wchar_t* maker) { SetText(m_strCameraMaker, maker); }

const wchar_t* CHeader::GetCameraModel() const { return m_strCameraModel.c_str(); }
void CHeader::SetCameraModel(const wchar_t* model) { SetText(m_strCameraModel, model); }

const wchar_t* CHeader::GetLightSource() const { return m_strLightSource.c_str(); }
void CHeader::SetLightSource(const std::wstring& source) {
  SetText(m_strLightSource, source.c_str());
}

std::uint16_t CHeader::GetISO() const { return m_nISO; }
void CHeader::SetISO(std::uint16_t iso) { m_nISO = iso; }

std::int32_t CHeader::GetCFAPattern() const { return m_nCFAPattern; }
void CHeader::SetCFAPattern(std::int32_t pattern) { m_nCFAPattern = pattern; }

std::optional<float> CHeader::GetGain() const { return m_fGain; }
void CHeader::SetGain(float gain) { m_fGain = gain; }

std::optional<float> CHeader::GetTemperature() const { return m_fTemperature; }
void CHeader::SetTemperature(float temperature) { m_fTemperature = temperature; }

std::int32_t CHeader::IsWBShootingGain() const { return m_bWBShootingGain; }
void CHeader::SetWBShootingGain(std::int32_t flag) { m_bWBShootingGain = flag; }

double CHeader::GetWBShootingGainBayer(int index) const {
  return GainAt(m_dWBShootingGainBayer, index);
}
void CHeader::GetWBShootingGainBayer(double* gains) const {
  CopyGains<4>(m_dWBShootingGainBayer, gains);
}
void CHeader::SetWBShootingGainBayer(int index, double gain) {
  SetGainAt(m_dWBShootingGainBayer, index, gain);
}
void CHeader::SetWBShootingGainBayer(const double* gains) {
  CopyGains<4>(gains, m_dWBShootingGainBayer);
}

double CHeader::GetWBShootingGainHoneyComb(int index) const {
  return GainAt(m_dWBShootingGainHoneyComb, index);
}
void CHeader::GetWBShootingGainHoneyComb(double* gains) const {
  CopyGains<8>(m_dWBShootingGainHoneyComb, gains);
}
void CHeader::SetWBShootingGainHoneyComb(int index, double gain) {
  SetGainAt(m_dWBShootingGainHoneyComb, index, gain);
}
void CHeader::SetWBShootingGainHoneyComb(const double* gains) {
  CopyGains<8>(gains, m_dWBShootingGainHoneyComb);
}

void CHeader::SetExposureShutterSpeed(const tagFRational& seconds) {
  tagFRational kept = kNotSet;
  if (IsSet(seconds)) {
    const double quotient = seconds.numerator / seconds.denominator;
    if (quotient >= 1.0) {
      kept = {quotient, 1.0};
    } else if (quotient < 1.0) {
      kept = {1.0, seconds.denominator / seconds.numerator};
    }
  }
  m_ShutterSpeed = kept;
}

void CHeader::GetExposureShutterSpeed(tagFRational& seconds) const { seconds = m_ShutterSpeed; }

void CHeader::GetExposureShutterSpeed(std::wstring& text) const {
  std::wstring out;
  if (IsSet(m_ShutterSpeed)) {
    const double quotient = m_ShutterSpeed.numerator / m_ShutterSpeed.denominator;
    const bool seconds = quotient >= 1.0;
    const double number =
        seconds ? quotient : m_ShutterSpeed.denominator / m_ShutterSpeed.numerator;
    out = (seconds ? L"" : L"1/") + FormatInt(SaturateToInt(number), 0, L' ') + L" sec.";
  }
  text = std::move(out);
}

void CHeader::SetExposureFNumber(const tagFRational& ratio) { m_FNumber = Checked(ratio); }
void CHeader::GetExposureFNumber(tagFRational& ratio) const { ratio = m_FNumber; }

void CHeader::GetExposureFNumber(std::wstring& text) const {
  std::wstring out;
  if (IsSet(m_FNumber)) {
    out = L"f/" + FormatFixed(m_FNumber.numerator / m_FNumber.denominator, 1, 0, L' ');
  }
  text = std::move(out);
}

void CHeader::SetFocalLength(const tagFRational& length) { m_FocalLength = Checked(length); }
void CHeader::GetFocalLength(tagFRational& length) const { length = m_FocalLength; }
