#pragma once

#include <limits>
#include <string>
#include <vector>

#include "korinimage/header.h"

// A header's cards as a list, and back.
namespace korin::test {

using Cards = std::vector<std::wstring>;

inline constexpr double kInf = std::numeric_limits<double>::infinity();
inline constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

inline CHeader Make(const Cards& cards) {
  CHeader header;
  for (const auto& card : cards) header.Add(card.c_str());
  return header;
}

inline Cards CardsOf(const CHeader& header) {
  Cards cards;
  for (int i = 0; i < header.GetCount(); ++i) cards.push_back(header.GetAt(i));
  return cards;
}

}  // namespace korin::test
