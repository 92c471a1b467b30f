// SPDX-License-Identifier: Apache-2.0

#include "Calendar.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <ostream>
#include <random>

namespace cf {

bool operator==(const GregorianDate& left, const GregorianDate& right) {
    return left.year == right.year && left.month == right.month && left.day == right.day &&
           left.hour == right.hour && left.minute == right.minute && left.second == right.second;
}

std::ostream& operator<<(std::ostream& out, const GregorianDate& date) {
    return out << date.year << '-' << int{date.month} << '-' << int{date.day} << ' '
               << int{date.hour} << ':' << int{date.minute} << ':' << date.second;
}

}  // namespace cf

namespace {

using cf::absoluteTime;
using cf::GregorianDate;
using cf::gregorianDate;

constexpr double kDay = 86400;

double midnight(std::int64_t year, int month, int day) {
    return absoluteTime(year, month, day, 0, 0, 0);
}

TEST(AbsoluteTime, CountsFromTheReferenceDate) {
    EXPECT_EQ(midnight(2001, 1, 1), 0);
    EXPECT_EQ(absoluteTime(2001, 1, 1, 0, 0, 1), 1);
    EXPECT_EQ(absoluteTime(2000, 12, 31, 23, 59, 59), -1);
    EXPECT_EQ(midnight(1970, 1, 1), -978307200);
    EXPECT_EQ(absoluteTime(9999, 12, 31, 23, 59, 59), 0x1.d62d23c7f8p+37);
    EXPECT_EQ(midnight(1600, 1, 1), -0x1.79216f4p+33);
}

TEST(AbsoluteTime, YearsBeforeTheFirstAreCounted) {
    EXPECT_EQ(midnight(1, 1, 1) - midnight(0, 1, 1), 366 * kDay);
    EXPECT_EQ(midnight(0, 1, 1) - midnight(-1, 1, 1), 365 * kDay);
    EXPECT_EQ(midnight(-1, 1, 1), -0x1.d6b4afp+35);
    EXPECT_EQ(midnight(-399, 1, 1) - midnight(-400, 1, 1), 366 * kDay);
    EXPECT_EQ(midnight(-99, 1, 1) - midnight(-100, 1, 1), 365 * kDay);
}

TEST(AbsoluteTime, FieldsOutOfRangeCarryOver) {
    EXPECT_EQ(midnight(2021, 2, 29), midnight(2021, 3, 1));
    EXPECT_EQ(midnight(2021, 2, 29), 0x1.2f633p+29);
    EXPECT_EQ(midnight(2021, 1, 0), midnight(2020, 12, 31));
    EXPECT_EQ(absoluteTime(2021, 1, 1, 99, 99, 99), midnight(2021, 1, 1) + 99 * 3661.0);
    EXPECT_EQ(absoluteTime(2021, 1, 1, -1, -1, -1), midnight(2021, 1, 1) - 3661.0);
    EXPECT_EQ(midnight(2001, 1, INT32_MAX), (INT32_MAX - 1.0) * kDay);
    EXPECT_EQ(midnight(2001, 1, INT32_MIN), (INT32_MIN - 1.0) * kDay);
}

TEST(AbsoluteTime, Months0And13To15AddTheseDays) {
    EXPECT_EQ(midnight(2001, 0, 1), 0);
    EXPECT_EQ(midnight(2001, 13, 1), 31536000);
    EXPECT_EQ(midnight(2001, 14, 1), 0);
    EXPECT_EQ(midnight(2001, 15, 1), 0);
    EXPECT_EQ(midnight(2004, 0, 1), midnight(2004, 1, 1));
    EXPECT_EQ(midnight(2004, 13, 1), midnight(2005, 1, 1));
    EXPECT_EQ(midnight(2004, 14, 1), midnight(2004, 1, 2));
    EXPECT_EQ(midnight(2004, 15, 1), midnight(2004, 1, 2));
}

TEST(AbsoluteTime, AnyYearIsCounted) {
    EXPECT_EQ(midnight(INT32_MAX, 1, 1), 67767976233532800.0 - 978307200 - 365 * kDay);
    EXPECT_NEAR(midnight(INT64_MAX, 1, 1) / 0x1p63, 365.2425 * kDay, 1e-3);
    EXPECT_NEAR(midnight(INT64_MIN, 1, 1) / 0x1p63, -365.2425 * kDay, 1e-3);
}

TEST(GregorianDate, ContainsTheSecond) {
    EXPECT_EQ(gregorianDate(0), (GregorianDate{2001, 1, 1, 0, 0, 0}));
    EXPECT_EQ(gregorianDate(-1), (GregorianDate{2000, 12, 31, 23, 59, 59}));
    EXPECT_EQ(gregorianDate(0x1.d62d23c7f8p+37), (GregorianDate{9999, 12, 31, 23, 59, 59}));
    EXPECT_EQ(gregorianDate(-0x1.d6b4afp+35), (GregorianDate{-1, 1, 1, 0, 0, 0}));
}

TEST(GregorianDate, FractionOfASecondIsCutOff) {
    EXPECT_EQ(gregorianDate(59.999), (GregorianDate{2001, 1, 1, 0, 0, 59}));
    EXPECT_EQ(gregorianDate(-0.5), (GregorianDate{2000, 12, 31, 23, 59, 59}));
    // The fraction is too small to change the minute from which it is subtracted.
    EXPECT_EQ(gregorianDate(-1e-300), (GregorianDate{2000, 12, 31, 23, 59, 60}));
}

TEST(GregorianDate, IsTheInverseForEveryDayOfACycle) {
    int days = -(365 + 366);
    for (int year = 1999; year < 1999 + 400; ++year) {
        const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
        const int lengths[] = {31, leap ? 29 : 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
        for (int month = 1; month <= 12; ++month) {
            for (int day = 1; day <= lengths[month - 1]; ++day) {
                const double start = days++ * kDay;
                ASSERT_EQ(gregorianDate(start),
                          (GregorianDate{year, static_cast<std::int8_t>(month),
                                         static_cast<std::int8_t>(day), 0, 0, 0}));
                ASSERT_EQ(midnight(year, month, day), start);
            }
        }
    }
}

TEST(GregorianDate, IsTheInverseOfTheAbsoluteTime) {
    std::mt19937_64 random(1);
    std::uniform_int_distribution<std::int64_t> times(-(std::int64_t{1} << 52),
                                                      std::int64_t{1} << 52);
    for (int count = 0; count < 100000; ++count) {
        const auto time = static_cast<double>(times(random));
        const GregorianDate date = gregorianDate(time);
        ASSERT_EQ(
            absoluteTime(date.year, date.month, date.day, date.hour, date.minute, date.second),
            time)
            << date;
    }
}

// These values are recorded. Such dates are written as well, and always in the same way.
TEST(GregorianDate, NotANumberYieldsTheRecordedDate) {
    const GregorianDate least{2030437302, 6, 7, 24, 60, INT32_MIN};
    EXPECT_EQ(gregorianDate(std::nan("")), least);
    EXPECT_EQ(gregorianDate(std::numeric_limits<double>::infinity()), least);
    EXPECT_EQ(gregorianDate(-std::numeric_limits<double>::infinity()), least);
}

TEST(GregorianDate, YearsOutOfRangeYieldTheRecordedDates) {
    EXPECT_EQ(gregorianDate(absoluteTime(INT32_MAX, 12, 31, 0, 0, 0)),
              (GregorianDate{INT32_MAX, 12, 31, 0, 0, 0}));
    EXPECT_EQ(gregorianDate(absoluteTime(INT32_MAX + std::int64_t{1}, 3, 4, 0, 0, 0)),
              (GregorianDate{INT32_MAX, 3, 4, 0, 0, 0}));
    EXPECT_EQ(gregorianDate(absoluteTime(INT32_MIN, 3, 4, 0, 0, 0)),
              (GregorianDate{INT32_MIN, 3, 4, 0, 0, 0}));
    EXPECT_EQ(gregorianDate(absoluteTime(INT32_MIN - std::int64_t{1}, 3, 4, 0, 0, 0)),
              (GregorianDate{INT32_MAX, 3, 4, 0, 0, 0}));
}

TEST(GregorianDate, AnyNumberYieldsAValidMonthAndDay) {
    const double largest = std::numeric_limits<double>::max();
    for (double time = 1; time <= largest / 3; time *= 3) {
        for (const double signedTime : {time, -time, 1 / time, -1 / time}) {
            const GregorianDate date = gregorianDate(signedTime);
            EXPECT_TRUE(date.month >= 1 && date.month <= 12) << signedTime;
            EXPECT_TRUE(date.day >= 1 && date.day <= 31) << signedTime;
        }
    }
    EXPECT_EQ(gregorianDate(largest).year, 2030437302);
    EXPECT_EQ(gregorianDate(-largest).year, 2030437302);
}

}  // namespace
