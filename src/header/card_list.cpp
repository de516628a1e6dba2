#include "header/card_list.h"

#include <utility>

#include "platform/text.h"

namespace korin::header {

namespace {

constexpr int kCardColumns = 80;

bool BeginsWithTenBlanks(std::wstring_view card) { return card.starts_with(L"          "); }

}  // namespace

std::wstring CutCard(std::wstring_view card) { return platform::CutToColumns(card, kCardColumns); }

std::wstring_view CardTail(std::wstring_view card, std::size_t index) {
  return index < card.size() ? card.substr(index) : std::wstring_view();
}

bool Matches(std::wstring_view card, std::wstring_view key) {
  if (card.size() < kKeywordColumns) return false;
  key = key.substr(0, kKeywordColumns);
  const std::wstring_view keyword = card.substr(0, kKeywordColumns);
  return keyword.starts_with(key) &&
         keyword.find_first_not_of(L' ', key.size()) == std::wstring_view::npos;
}

std::size_t FindCard(const CardList& cards, std::wstring_view key) {
  for (std::size_t i = 0; i < cards.size(); ++i) {
    if (Matches(cards[i], key)) return i;
  }
  return kNotFound;
}

// One forward pass gives what removing backwards, each match with the blank cards
// that then follow it, would give, in linear time.
void RemoveMatches(CardList& cards, std::wstring_view key) {
  std::size_t kept = 0;
  bool removing = false;
  for (std::size_t i = 0; i < cards.size(); ++i) {
    removing = Matches(cards[i], key) || (removing && BeginsWithTenBlanks(cards[i]));
    if (removing) continue;
    if (kept != i) cards[kept] = std::move(cards[i]);
    ++kept;
  }
  cards.resize(kept);
}

void PlaceCard(CardList& cards, std::wstring_view key, std::wstring_view card,
               std::wstring_view predecessor) {
  const std::size_t present = FindCard(cards, key);
  if (present != kNotFound) {
    cards[present] = CutCard(card);
    return;
  }
  const std::size_t before = predecessor.empty() ? kNotFound : FindCard(cards, predecessor);
  const std::size_t at = before == kNotFound ? cards.size() : before + 1;
  cards.insert(cards.begin() + static_cast<std::ptrdiff_t>(at), CutCard(card));
}

}  // namespace korin::header
