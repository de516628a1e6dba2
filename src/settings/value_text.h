#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// How names and values stand in the settings file. Numbers are read and written in
// one fixed notation, whatever the locale.
//
// A value stands as it is where one line can carry it. Otherwise - blanks at an end,
// control characters, quotes at both ends, bytes that are no UTF-8 - it stands in
// double quotes, with %XX for each byte that cannot be written. Outside quotes a %
// is a plain character, so that paths may be typed in by hand.
namespace korin::settings {

// The name of a section or key as it stands in the file. Characters that would end
// the name there are written as %XX. An empty section is the part above the first
// one; an empty key stands as %.
std::string EncodeSection(std::string_view name);
std::string EncodeKey(std::string_view name);

std::string EncodeValue(std::wstring_view value);
std::wstring DecodeValue(std::string_view stored);

// A decimal integer with an optional sign and blanks around it; saturates.
std::optional<std::int64_t> ParseInteger(std::string_view stored);
// A finite decimal number, likewise.
std::optional<double> ParseDouble(std::string_view stored);
// 0/1, true/false, yes/no, on/off in any case.
std::optional<bool> ParseBool(std::string_view stored);

}  // namespace korin::settings
