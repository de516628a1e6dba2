#pragma once

#include <optional>
#include <string>

#include "korinimage/header.h"

namespace korin::app {

// The value of the first card that matches a keyword, as text in UTF-8: a string
// without its quotes and trailing blanks, continued over CONTINUE cards; a number
// or logical as it stands; the whole text of a card without a value indicator.
// None when there is no such card.
std::optional<std::string> CardValue(const CHeader& header, const std::wstring& keyword);

}  // namespace korin::app
