#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "korinimage/header.h"

namespace korin::app {

// Text out of a file for a terminal: control characters become "?".
std::string PrintableText(std::wstring_view text);

// The value of the first card that matches a keyword, as text in UTF-8: a string
// without its quotes and trailing blanks, continued over CONTINUE cards; a number
// or logical as it stands; the whole text of a card without a value indicator.
// None when there is no such card.
std::optional<std::string> CardValue(const CHeader& header, const std::wstring& keyword);

// The value as a number, a finite one, with exponents after E or D. None as well for
// a value that is no number as a whole.
std::optional<double> CardNumber(const CHeader& header, const std::wstring& keyword);

}  // namespace korin::app
