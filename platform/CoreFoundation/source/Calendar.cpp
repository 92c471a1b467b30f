// SPDX-License-Identifier: Apache-2.0

#include "Calendar.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace cf {
namespace {

__extension__ using Wide = __int128;

constexpr std::int64_t kReferenceYear = 2001;

constexpr int kYearsInCycle = 400;
constexpr int kDaysInCycle = 146097;
constexpr int kDaysInCentury = 36524;
constexpr int kDaysInFourYears = 1461;
constexpr int kDaysInYear = 365;

// The days from the start of year 0, a leap year, to the start of the reference year.
constexpr int kDaysBeforeReference = 5 * kDaysInCycle + kDaysInYear + 1;

// A date may name the months 13 to 15. A later month adds no days.
constexpr int kDaysBeforeMonth[] = {0,   0,   31,  59,  90,  120, 151, 181,
                                    212, 243, 273, 304, 334, 365, 0,   0};

struct Division {
    std::int64_t quotient;
    int remainder;
};

// Divides with a remainder that is never negative.
Division divideDown(std::int64_t dividend, int divisor) {
    const std::int64_t quotient = dividend / divisor - (dividend % divisor < 0 ? 1 : 0);
    const int remainder = static_cast<int>(dividend % divisor);
    return {quotient, remainder < 0 ? remainder + divisor : remainder};
}

bool isLeap(int yearInCycle) {
    return yearInCycle % 4 == 0 && (yearInCycle % 100 != 0 || yearInCycle == 0);
}

int daysBeforeMonth(int month, bool leap) {
    if (month >= static_cast<int>(std::size(kDaysBeforeMonth))) {
        return 0;
    }
    return kDaysBeforeMonth[month] + (month > 2 && leap ? 1 : 0);
}

// Both functions return the least integer if the number is not a number or does not fit. The
// language leaves such conversions undefined, but a date must be the same on every processor.
std::int64_t toInt64(double number) {
    const bool fits = number >= -0x1p63 && number < 0x1p63;
    return fits ? static_cast<std::int64_t>(number) : INT64_MIN;
}

std::int32_t toInt32(double number) {
    const bool fits = number >= -0x1p31 && number < 0x1p31;
    return fits ? static_cast<std::int32_t>(number) : INT32_MIN;
}

// Returns the remainder of a division that rounds down. The product must be rounded before the
// subtraction, since a fused operation would yield different times.
double floorRemainder(double number, int divisor) {
    const double product = std::floor(number / divisor) * divisor;
    return number - product;
}

std::int8_t remainderToInt8(double number, int divisor) {
    const double exact = std::floor(floorRemainder(number, divisor));
    std::int32_t remainder = INT32_MIN;
    if (exact >= -0x1p31 && exact < 0x1p31) {
        remainder = toInt32(static_cast<float>(exact));
    }
    if (remainder < 0) {
        remainder += divisor;
    }
    return static_cast<std::int8_t>(static_cast<std::uint8_t>(remainder));
}

}  // namespace

double absoluteTime(std::int64_t year, int month, int day, int hour, int minute, int second) {
    const auto [cycle, yearInCycle] = divideDown(year, kYearsInCycle);
    const int leapDays =
        (yearInCycle + 3) / 4 - (yearInCycle + 99) / 100 + (yearInCycle > 0 ? 1 : 0);
    const int dayInCycle =
        yearInCycle * kDaysInYear + leapDays + daysBeforeMonth(month, isLeap(yearInCycle));
    const Wide days = Wide{cycle} * kDaysInCycle + dayInCycle - kDaysBeforeReference + day - 1;
    return 86400.0 * static_cast<double>(days) + 3600.0 * hour + 60.0 * minute + second;
}

GregorianDate gregorianDate(double time) {
    // The reference year is the first of a cycle, so each leap day is at the end of a period: of
    // every fourth year, except at the end of a century, except at the end of the cycle.
    const auto [cycle, dayInCycle] = divideDown(toInt64(std::floor(time / 86400)), kDaysInCycle);
    int days = dayInCycle;
    const int century = std::min(days / kDaysInCentury, 3);
    days -= century * kDaysInCentury;
    const int fourYears = days / kDaysInFourYears;
    days -= fourYears * kDaysInFourYears;
    const int year = std::min(days / kDaysInYear, 3);
    days -= year * kDaysInYear;

    const int yearInCycle = century * 100 + fourYears * 4 + year;
    const bool leap = isLeap((yearInCycle + 1) % kYearsInCycle);
    int month = 12;
    while (daysBeforeMonth(month, leap) > days) {
        --month;
    }

    const std::int64_t sinceReference =
        std::min(cycle * kYearsInCycle + yearInCycle, INT32_MAX - kReferenceYear);
    double second = floorRemainder(time, 60);
    if (second < 0) {
        second += 60;
    }

    GregorianDate date{};
    date.year =
        static_cast<std::int32_t>(static_cast<std::uint32_t>(sinceReference + kReferenceYear));
    date.month = static_cast<std::int8_t>(month);
    date.day = static_cast<std::int8_t>(days - daysBeforeMonth(month, leap) + 1);
    date.hour = remainderToInt8(std::floor(time / 3600), 24);
    date.minute = remainderToInt8(std::floor(time / 60), 60);
    date.second = toInt32(second);
    return date;
}

}  // namespace cf
