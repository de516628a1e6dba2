#include <algorithm>
#include <climits>
#include <utility>

#include "header/card_list.h"
#include "header/number_text.h"
#include "korinimage/exceptions.h"
#include "korinimage/header.h"

using korin::header::CardTail;
using korin::header::FindCard;
using korin::header::kNotFound;

namespace {

constexpr CRuntimeClass kHeaderClass = {"CHeader"};
constexpr std::size_t kValueIndex = 11;

std::wstring_view ViewOf(const wchar_t* text) {
  return text == nullptr ? std::wstring_view() : std::wstring_view(text);
}

// A checked index.
std::size_t IndexOf(int i) {
  if (i < 0) throw korin::CInvalidArgException("CHeader: negative card index");
  return static_cast<std::size_t>(i);
}

int ToInt(std::size_t value) { return static_cast<int>(std::min<std::size_t>(value, INT_MAX)); }

}  // namespace

namespace korin {

CInvalidArgException::~CInvalidArgException() = default;

}  // namespace korin

CHeader::CHeader(const CHeader* other) { CopyData(other); }

CHeader::CHeader(const CHeader& other) = default;

CHeader& CHeader::operator=(const CHeader& other) { return CopyData(&other); }

CHeader::CHeader(CHeader&& other) noexcept : CHeader() { Swap(other); }

CHeader& CHeader::operator=(CHeader&& other) noexcept {
  CHeader taken(std::move(other));
  Swap(taken);
  return *this;
}

CHeader::~CHeader() = default;

const CRuntimeClass* CHeader::GetRuntimeClass() const { return &kHeaderClass; }

CHeader& CHeader::CopyData(const CHeader* other) {
  if (other != nullptr && other != this) {
    CHeader copy(*other);
    Swap(copy);
  }
  return *this;
}

void CHeader::Swap(CHeader& other) noexcept {
  using std::swap;
  swap(m_aCards, other.m_aCards);
  swap(m_ShutterSpeed, other.m_ShutterSpeed);
  swap(m_FNumber, other.m_FNumber);
  swap(m_nISO, other.m_nISO);
  swap(m_strLightSource, other.m_strLightSource);
  swap(m_FocalLength, other.m_FocalLength);
  swap(m_strCameraMaker, other.m_strCameraMaker);
  swap(m_strCameraModel, other.m_strCameraModel);
  swap(m_bWBShootingGain, other.m_bWBShootingGain);
  swap(m_dWBShootingGainBayer, other.m_dWBShootingGainBayer);
  swap(m_dWBShootingGainHoneyComb, other.m_dWBShootingGainHoneyComb);
  swap(m_nCFAPattern, other.m_nCFAPattern);
  swap(m_fGain, other.m_fGain);
  swap(m_fTemperature, other.m_fTemperature);
}

void CHeader::Add(const wchar_t* card) { m_aCards.push_back(korin::header::CutCard(ViewOf(card))); }

void CHeader::InsertAt(int i, const wchar_t* card) {
  const std::size_t at = IndexOf(i);
  std::wstring cut = korin::header::CutCard(ViewOf(card));
  if (at < m_aCards.size()) {
    m_aCards.insert(m_aCards.begin() + i, std::move(cut));
    return;
  }
  if (i >= kMaxPaddedCards) {
    throw korin::CKorinImageBadAllocException(
        "CHeader: card index too large",
        {.requested = std::int64_t{i} + 1, .used = GetCount(), .allowed = kMaxPaddedCards});
  }
  m_aCards.resize(at + 1);
  m_aCards[at] = std::move(cut);
}

void CHeader::SetAt(int i, const wchar_t* card) {
  const std::size_t at = IndexOf(i);
  if (at < m_aCards.size()) m_aCards[at] = korin::header::CutCard(ViewOf(card));
}

std::wstring CHeader::GetAt(int i) const {
  const std::size_t at = IndexOf(i);
  return at < m_aCards.size() ? m_aCards[at] : std::wstring();
}

int CHeader::DeleteAt(int i) {
  if (IndexOf(i) >= m_aCards.size()) return 0;
  m_aCards.erase(m_aCards.begin() + i);
  return 1;
}

void CHeader::DeleteAll(const wchar_t* key) {
  if (key == nullptr) {
    m_aCards.clear();
  } else {
    korin::header::RemoveMatches(m_aCards, key);
  }
}

int CHeader::Find(const wchar_t* key) const {
  const std::size_t at = key == nullptr ? kNotFound : FindCard(m_aCards, key);
  return at == kNotFound ? -1 : ToInt(at);
}

int CHeader::GetCount() const { return ToInt(m_aCards.size()); }

int CHeader::GetHeaderInt(const wchar_t* key, int& value) const {
  const int at = Find(key);
  if (at < 0) return 0;
  value = korin::header::ParseInt(CardTail(m_aCards[static_cast<std::size_t>(at)], kValueIndex));
  return 1;
}

int CHeader::GetHeaderDouble(const wchar_t* key, double& value) const {
  const int at = Find(key);
  if (at < 0) return 0;
  value = korin::header::ParseReal(CardTail(m_aCards[static_cast<std::size_t>(at)], kValueIndex));
  return 1;
}
