#include "header/number_text.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace korin::header {

namespace {

constexpr bool IsDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }
constexpr bool IsSign(wchar_t c) { return c == L'+' || c == L'-'; }

std::wstring_view SkipSpace(std::wstring_view text) {
  const auto begin = text.find_first_not_of(L" \t\n\v\f\r");
  return begin == std::wstring_view::npos ? std::wstring_view() : text.substr(begin);
}

std::wstring_view LeadingDigits(std::wstring_view text) {
  return text.substr(0, text.size() - SkipDigits(text).size());
}

bool TakeSign(std::wstring_view& text) {
  if (text.empty() || !IsSign(text.front())) return false;
  const bool negative = text.front() == L'-';
  text.remove_prefix(1);
  return negative;
}

void AppendDigits(std::string& out, std::wstring_view digits) {
  for (const wchar_t c : digits) out += static_cast<char>('0' + (c - L'0'));
}

int SaturatedDigits(std::wstring_view digits, bool negative) {
  constexpr std::int64_t kMax = std::numeric_limits<int>::max();
  const std::int64_t limit = negative ? kMax + 1 : kMax;
  std::int64_t value = 0;
  for (const wchar_t c : digits) {
    value = value * 10 + (c - L'0');
    if (value >= limit) {
      value = limit;
      break;
    }
  }
  return static_cast<int>(negative ? -value : value);
}

// Exponent of ten of the first digit that is not zero: tells an overflow from an
// underflow when the conversion only says "out of range".
std::int64_t Magnitude(std::wstring_view whole, std::wstring_view fraction, int exponent) {
  const auto inWhole = whole.find_first_not_of(L'0');
  if (inWhole != std::wstring_view::npos) {
    return static_cast<std::int64_t>(whole.size() - inWhole) + exponent;
  }
  const auto inFraction = fraction.find_first_not_of(L'0');
  if (inFraction == std::wstring_view::npos) return std::numeric_limits<int>::min();
  return exponent - static_cast<std::int64_t>(inFraction);
}

std::wstring Padded(const char* begin, const char* end, int width, wchar_t fill) {
  std::wstring out;
  const auto length = static_cast<std::size_t>(end - begin);
  if (width > 0 && static_cast<std::size_t>(width) > length) {
    out.assign(static_cast<std::size_t>(width) - length, fill);
  }
  out.append(begin, end);
  return out;
}

}  // namespace

int ParseInt(std::wstring_view text) {
  text = SkipSpace(text);
  const bool negative = TakeSign(text);
  return SaturatedDigits(LeadingDigits(text), negative);
}

double ParseReal(std::wstring_view text) {
  text = SkipSpace(text);
  const bool negative = TakeSign(text);
  const std::wstring_view whole = LeadingDigits(text);
  text.remove_prefix(whole.size());
  std::wstring_view fraction;
  if (!text.empty() && text.front() == L'.') {
    fraction = LeadingDigits(text.substr(1));
    text.remove_prefix(1 + fraction.size());
  }
  if (whole.empty() && fraction.empty()) return 0.0;

  int exponent = 0;
  if (!text.empty() && std::wstring_view(L"eEdD").find(text.front()) != std::wstring_view::npos) {
    text.remove_prefix(1);
    const bool down = TakeSign(text);
    exponent = SaturatedDigits(LeadingDigits(text), down);
  }

  // The conversion takes neither '+' nor 'D', so it gets a clean text.
  std::string clean = "0";
  AppendDigits(clean, whole);
  clean += '.';
  AppendDigits(clean, fraction);
  clean += "0e";
  char digits[16];
  clean.append(digits, std::to_chars(digits, digits + sizeof digits, exponent).ptr);
  double value = 0.0;
  const auto result = std::from_chars(clean.data(), clean.data() + clean.size(), value);
  if (result.ec == std::errc::result_out_of_range) {
    value = Magnitude(whole, fraction, exponent) > 0 ? HUGE_VAL : 0.0;
  }
  return negative ? -value : value;
}

std::wstring_view SkipDigits(std::wstring_view text) {
  std::size_t count = 0;
  while (count < text.size() && IsDigit(text[count])) ++count;
  return text.substr(count);
}

std::wstring FormatInt(std::int64_t value, int width, wchar_t fill) {
  char digits[24];
  return Padded(digits, std::to_chars(digits, digits + sizeof digits, value).ptr, width, fill);
}

std::wstring FormatFixed(double value, int decimals, int width, wchar_t fill) {
  char digits[512];  // the largest double has 309 digits before the point
  if (value == 0.0) value = 0.0;
  return Padded(digits,
                std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed,
                              decimals < 0 ? 0 : (decimals > 100 ? 100 : decimals))
                    .ptr,
                width, fill);
}

int SaturateToInt(double value) {
  if (std::isnan(value)) return 0;
  if (value >= std::numeric_limits<int>::max()) return std::numeric_limits<int>::max();
  if (value <= std::numeric_limits<int>::min()) return std::numeric_limits<int>::min();
  return static_cast<int>(value);
}

}  // namespace korin::header
