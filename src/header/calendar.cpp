#include "header/calendar.h"

#include <chrono>
#include <cmath>
#include <cstdint>

namespace korin::calendar {

namespace {

constexpr double kUnixEpochJd = 2440587.5;
constexpr std::int64_t kFirstDay = -2440550;  // -4712-01-01, from 1970-01-01
constexpr std::int64_t kEndDay = 2932897;     // 10000-01-01

constexpr std::int64_t FloorDiv(std::int64_t a, std::int64_t b) {
  return a / b - (a % b != 0 && (a % b < 0) != (b < 0) ? 1 : 0);
}

// Days from 1970-01-01 to a date whose month and day may lie anywhere. The
// calendar repeats every 400 years, so only the years of one cycle, near today,
// are asked of <chrono>, whose own range of years is narrower than an int's.
std::int64_t DaysOf(std::int64_t year, std::int64_t month, std::int64_t day) {
  constexpr std::int64_t kDaysOfCycle = 146097;
  const std::int64_t months = year * 12 + (month - 1);
  const std::int64_t wholeYear = FloorDiv(months, 12);
  const std::int64_t cycle = FloorDiv(wholeYear, 400);
  const auto yearOfCycle = static_cast<int>(wholeYear - cycle * 400);
  const auto monthOfYear = static_cast<unsigned>(months - wholeYear * 12 + 1);
  const std::chrono::sys_days first =
      std::chrono::year(2000 + yearOfCycle) / std::chrono::month(monthOfYear) / std::chrono::day(1);
  return first.time_since_epoch().count() + (cycle - 5) * kDaysOfCycle + (day - 1);
}

// Sets year, month and day; false outside the range, nothing set.
bool SetCivil(std::int64_t days, tagADATE& date) {
  if (days < kFirstDay || days >= kEndDay) return false;
  const std::chrono::year_month_day civil(
      std::chrono::sys_days(std::chrono::days(static_cast<int>(days))));
  date.year = static_cast<int>(civil.year());
  date.month = static_cast<std::int32_t>(static_cast<unsigned>(civil.month()));
  date.day = static_cast<std::int32_t>(static_cast<unsigned>(civil.day()));
  return true;
}

}  // namespace

bool IsInRange(double jd) { return jd >= kFirstJd && jd < kEndJd; }

std::optional<double> GetJd(const tagADATE& date) {
  const std::int64_t seconds = std::int64_t{date.hour} * 3600 + std::int64_t{date.minute} * 60;
  const std::int64_t carry = FloorDiv(seconds, 86400);
  const std::int64_t day = DaysOf(date.year, date.month, date.day) + carry;
  const double ofDay = static_cast<double>(seconds - carry * 86400) + date.second;
  const double jd =
      (static_cast<double>(day) + kUnixEpochJd) + (ofDay / 86400.0 - date.timezone / 24.0);
  return IsInRange(jd) ? std::optional(jd) : std::nullopt;
}

bool JdToDate2(double jd, tagADATE& date) {
  constexpr std::int64_t kTicksOfSecond = 10000;
  constexpr std::int64_t kTicksOfDay = 86400 * kTicksOfSecond;
  if (!IsInRange(jd)) return false;
  const double fromMidnight = jd + 0.5;
  const double day = std::floor(fromMidnight);
  auto days = static_cast<std::int64_t>(day - (kUnixEpochJd + 0.5));
  std::int64_t ticks = std::llround((fromMidnight - day) * static_cast<double>(kTicksOfDay));
  if (ticks == kTicksOfDay) {
    ticks = 0;
    ++days;
  }
  tagADATE result;
  if (!SetCivil(days, result)) return false;
  const std::int64_t minutes = ticks / (60 * kTicksOfSecond);
  result.hour = static_cast<std::int32_t>(minutes / 60);
  result.minute = static_cast<std::int32_t>(minutes % 60);
  result.second =
      static_cast<double>(ticks % (60 * kTicksOfSecond)) / static_cast<double>(kTicksOfSecond);
  date = result;
  return true;
}

bool ChangeDate(tagADATE& date, const tagADATE& span, Direction direction) {
  const std::int64_t sign = direction == Direction::kAdd ? 1 : -1;
  const double seconds = date.second + static_cast<double>(sign) * span.second;
  // Longer than the whole range of years: also keeps the conversions below safe.
  constexpr double kTooLong = 1e12;
  if (!(std::fabs(seconds) < kTooLong)) return false;

  double second = std::fmod(seconds, 60.0);
  auto carry = static_cast<std::int64_t>(std::llround((seconds - second) / 60.0));
  // Sums such as 8.7 - 0.2 must not end a hair below the value that was meant.
  second = std::round(second * 1e9) / 1e9;
  if (second < 0.0) {
    second += 60.0;
    --carry;
  }
  if (second >= 60.0) {
    second = 0.0;
    ++carry;
  }

  const std::int64_t minutes = date.minute + sign * span.minute + carry;
  const std::int64_t carriedHours = FloorDiv(minutes, 60);
  const std::int64_t hours = date.hour + sign * span.hour + carriedHours;
  const std::int64_t carriedDays = FloorDiv(hours, 24);
  const std::int64_t days = DaysOf(date.year + sign * span.year, date.month + sign * span.month,
                                   date.day + sign * span.day + carriedDays);
  tagADATE result = date;
  if (!SetCivil(days, result)) return false;
  result.hour = static_cast<std::int32_t>(hours - carriedDays * 24);
  result.minute = static_cast<std::int32_t>(minutes - carriedHours * 60);
  result.second = second + 0.0;  // no negative zero
  date = result;
  return true;
}

bool ChangeDate(tagADATE& date, double seconds, Direction direction) {
  tagADATE span;
  span.second = seconds;
  return ChangeDate(date, span, direction);
}

bool ChangeTimezone(tagADATE& date, double hours) {
  // Offsets are whole seconds; hours as a double are not always.
  const double shift = std::round((hours - date.timezone) * 3600.0 * 1e4) / 1e4;
  tagADATE result = date;
  if (!std::isfinite(hours) || !ChangeDate(result, shift, Direction::kAdd)) return false;
  result.timezone = hours;
  date = result;
  return true;
}

}  // namespace korin::calendar
