// SPDX-License-Identifier: Apache-2.0

// Converts dates of the proleptic Gregorian calendar, which has a year 0. All times are in UTC,
// without leap seconds.
#ifndef COREFOUNDATION_CALENDAR_H
#define COREFOUNDATION_CALENDAR_H

#include <cstdint>

namespace cf {

struct GregorianDate {
    std::int32_t year;
    std::int8_t month;
    std::int8_t day;
    std::int8_t hour;
    std::int8_t minute;
    std::int32_t second;
};

// Returns the seconds since 2001-01-01T00:00:00Z. Fields out of their usual range carry over,
// except the month: a month after 15 adds no days, and no month may be negative.
double absoluteTime(std::int64_t year, int month, int day, int hour, int minute, int second);

// Returns the date and time that contain the moment. If `time` is not a number or is too far from
// 2001, some fields are outside their range; they are the same on every processor.
GregorianDate gregorianDate(double time);

}  // namespace cf

#endif  // COREFOUNDATION_CALENDAR_H
