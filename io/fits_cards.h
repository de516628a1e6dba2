#pragma once

#include <string>
#include <string_view>
#include <vector>

// Header cards between a file (80 bytes) and CHeader (wide text).
namespace korin {

// A card as read from a file, blank-padded to 80 columns. Bytes beyond ASCII, which
// the format forbids and some writers use all the same, are taken as UTF-8 when
// they are, else as Latin-1.
std::wstring CardToWide(std::string_view card);

// Exactly 80 printable bytes; control characters become blanks.
std::string CardToBytes(std::wstring_view card);

// Columns 1-8 without trailing blanks.
std::string_view CardKeyword(std::string_view card);

// True for a card that a writer makes itself: structure, scaling, checksums, END.
bool IsWriterCard(std::string_view keyword);

// The cards of a tile-compressed image, given those of the table that holds it: the
// table's own cards are left out, the image's structure comes back under its names.
std::vector<std::string> ImageCardsOfTable(const std::vector<std::string>& table);

// Value cards in fixed format.
std::string LogicalCard(std::string_view keyword, bool value, std::string_view comment);
std::string IntegerCard(std::string_view keyword, long long value, std::string_view comment);
std::string RealCard(std::string_view keyword, double value, std::string_view comment);

}  // namespace korin
