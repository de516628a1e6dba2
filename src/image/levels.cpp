// Display levels: what is shown as black and white, plane by plane.
#include <algorithm>

#include "korinimage/image.h"

namespace {

double At(const std::vector<double>& values, int plane) {
  const auto index = static_cast<std::size_t>(plane);
  return plane >= 0 && index < values.size() ? values[index] : 0.0;
}

}  // namespace

double CImage::GetLevelMin(int plane) const { return At(m_levelMin, plane); }
double CImage::GetLevelMax(int plane) const { return At(m_levelMax, plane); }
double CImage::GetLevelRange(int plane) const { return At(m_levelRange, plane); }

bool CImage::AllocLevel() {
  const auto planes = static_cast<std::size_t>(std::max(GetPlanes(), 0));
  m_levelMin.assign(planes, 0.0);
  m_levelMax.assign(planes, 1.0);
  m_levelRange.assign(planes, 1.0);
  return true;
}

bool CImage::SetDefaultLevel() {
  if (!AllocLevel()) return false;
  for (int plane = 0; plane < GetPlanes(); ++plane) {
    const auto [min, max] = GetMinMax(plane);
    SetLevel(plane, min, max);
  }
  return true;
}

bool CImage::SetLevel(int plane, double min, double max) {
  if ((m_levelMin.empty() || m_levelMax.empty() || m_levelRange.empty()) && !AllocLevel()) {
    return false;
  }
  const auto index = static_cast<std::size_t>(plane);
  if (plane < 0 || index >= std::min({m_levelMin.size(), m_levelMax.size(), m_levelRange.size()})) {
    return false;
  }
  m_levelMin[index] = min;
  m_levelMax[index] = max - min <= 0.0 ? min + 1.0 : max;
  m_levelRange[index] = m_levelMax[index] - m_levelMin[index];
  return true;
}

bool CImage::SetLevelMin(int plane, double min) {
  if (m_levelMax.empty()) AllocLevel();
  return SetLevel(plane, min, GetLevelMax(plane));
}

bool CImage::SetLevelMax(int plane, double max) {
  if (m_levelMin.empty()) AllocLevel();
  return SetLevel(plane, GetLevelMin(plane), max);
}
