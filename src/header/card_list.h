#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// The cards of a header as plain data: cutting, matching, placing. CHeader and the
// writer of the observation cards both work through these.
namespace korin::header {

using CardList = std::vector<std::wstring>;

inline constexpr std::size_t kKeywordColumns = 8;
inline constexpr std::size_t kNotFound = static_cast<std::size_t>(-1);

// Cut to the 80 columns that are kept.
std::wstring CutCard(std::wstring_view card);

// Everything from `index` on; empty for a card that ends before.
std::wstring_view CardTail(std::wstring_view card, std::size_t index);

// Whether the keyword field of `card` is `key`, cut or blank-padded to 8
// characters. A card without a whole keyword field matches nothing.
bool Matches(std::wstring_view card, std::wstring_view key);

// Index of the first card that matches, else kNotFound.
std::size_t FindCard(const CardList& cards, std::wstring_view key);

// Removes every match and the ten-blank cards directly behind it.
void RemoveMatches(CardList& cards, std::wstring_view key);

// Replaces the first card that matches `key`; without one, inserts `card` behind
// the first match of `predecessor`; without that (or an empty one), appends it.
void PlaceCard(CardList& cards, std::wstring_view key, std::wstring_view card,
               std::wstring_view predecessor = {});

}  // namespace korin::header
