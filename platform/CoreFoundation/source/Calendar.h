// The proleptic Gregorian calendar, in which there is a year 0, in UTC and without leap seconds.
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

// The date and time that contain the moment. Moments too far away to have one, and what is no
// number, yield fields out of their range, but always the same.
GregorianDate gregorianDate(double time);

}  // namespace cf

#endif  // COREFOUNDATION_CALENDAR_H
