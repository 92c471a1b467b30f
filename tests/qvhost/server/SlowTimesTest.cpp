#include "server/SlowTimes.h"

#include <gtest/gtest.h>

#include <chrono>

namespace qv::host {
namespace {

using std::chrono::milliseconds;

constexpr SlowTimes::Clock::time_point kStart(std::chrono::hours(1));

TEST(SlowTimes, AreNoneAtFirst) {
    const SlowTimes times;
    EXPECT_FALSE(times.include(SlowTimes::Clock::time_point()));
    EXPECT_FALSE(times.include(kStart));
}

TEST(SlowTimes, ShortRequestBeginsNoneAndEndsNone) {
    SlowTimes times;
    times.executed(kStart, kStart + std::chrono::microseconds(999));
    EXPECT_FALSE(times.include(kStart + milliseconds(1)));
    times.executed(kStart, kStart + milliseconds(5));
    times.executed(kStart + milliseconds(5), kStart + milliseconds(5));
    EXPECT_TRUE(times.include(kStart + milliseconds(6)));
}

TEST(SlowTimes, LongRequestBeginsOneTenTimesAsLong) {
    SlowTimes times;
    times.executed(kStart, kStart + milliseconds(5));
    EXPECT_TRUE(times.include(kStart + milliseconds(5)));
    EXPECT_TRUE(times.include(kStart + milliseconds(54)));
    EXPECT_FALSE(times.include(kStart + milliseconds(55)));
    times.executed(kStart + milliseconds(60), kStart + milliseconds(61));
    EXPECT_TRUE(times.include(kStart + milliseconds(70)));
    EXPECT_FALSE(times.include(kStart + milliseconds(71)));
}

TEST(SlowTimes, ShorterOneDoesNotEndALongerOne) {
    SlowTimes times;
    times.executed(kStart, kStart + milliseconds(100));
    times.executed(kStart + milliseconds(99), kStart + milliseconds(101));
    EXPECT_TRUE(times.include(kStart + milliseconds(1000)));
}

}  // namespace
}  // namespace qv::host
