#pragma once

#include <optional>

#include "korinimage/types.h"

// Calendar dates, Julian Dates and time zones, in the Gregorian calendar
// throughout (also before 1582).
//
// Every routine is total: parts of a date may lie outside their usual ranges and
// carry (month 13 is January of the next year, 30 February is 2 March), whatever
// the caller parsed. A result outside the years -4712 to 9999, or from a value
// that is not finite, is a failure, which leaves the argument as it was. Time is
// constant whatever the values. Throws nothing; no shared state.
namespace korin::calendar {

// First instant of the year -4712 and of the year 10000, as Julian Dates.
inline constexpr double kFirstJd = 37.5;
inline constexpr double kEndJd = 5373484.5;

// Whether `jd` is finite and kFirstJd <= jd < kEndJd.
bool IsInRange(double jd);

// The Julian Date of a date whose zone is `date.timezone`; exact to one unit in the
// last place of the result (40 microseconds today).
std::optional<double> GetJd(const tagADATE& date);

// The date and time (UTC) of a Julian Date, rounded to 0.1 ms: the last place of a
// Julian Date is coarser than what any printed second shows, and the grid gives
// back exactly the time that made it.
bool JdToDate2(double jd, tagADATE& date);

enum class Direction { kAdd = 0, kSubtract = 1 };

// Adds or subtracts a span: `span` counts years, months, days, hours, minutes and
// seconds, its time zone is not looked at. The result is normalised, its second in
// [0, 60), rounded to a nanosecond.
bool ChangeDate(tagADATE& date, const tagADATE& span, Direction direction);
// The same for a span of seconds.
bool ChangeDate(tagADATE& date, double seconds, Direction direction);

// Expresses the date in the zone `hours` east of UTC and sets its time-zone field.
bool ChangeTimezone(tagADATE& date, double hours);

}  // namespace korin::calendar
