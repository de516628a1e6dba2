#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Numbers in and out of card text, without a locale: the point is always ".", no
// digit is ever grouped, and nothing depends on the width of wchar_t. Everything
// works on views, so a short card can never be read past its end.
namespace korin::header {

// Behind leading white space and one sign, the decimal digits at the front of
// `text`, saturated to the range of int; 0 without digits.
int ParseInt(std::wstring_view text);

// Behind leading white space, [sign] digits [. digits] [(e|E|d|D) [sign] digits]
// at the front of `text`. At least one digit must stand before the exponent, or
// the result is 0; an exponent letter without digits ends the number before it.
// Beyond the range of double the result is an infinity or zero. Hexadecimal
// forms, "inf" and "nan" are no numbers.
double ParseReal(std::wstring_view text);

// `text` behind its leading decimal digits (no sign, no blank is skipped).
std::wstring_view SkipDigits(std::wstring_view text);

// Left-padded with `fill` to at least `width` characters.
std::wstring FormatInt(std::int64_t value, int width, wchar_t fill);
// With `decimals` digits behind the point, rounded by the exact value (ties to
// even), never "-0.0" for a negative zero.
std::wstring FormatFixed(double value, int decimals, int width, wchar_t fill);

// Truncated toward zero and clamped to the range of int; NaN gives 0.
int SaturateToInt(double value);

}  // namespace korin::header
