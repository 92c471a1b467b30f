// SPDX-License-Identifier: Apache-2.0

#include "server/Pace.h"

#include <gtest/gtest.h>

namespace qv::host {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr Pace::Clock::time_point kNow{std::chrono::hours(1)};

TEST(Pace, FirstTurnBeginsAtOnce) {
    const Pace pace{Pace::Settings()};
    EXPECT_LE(pace.next(false), kNow);
    EXPECT_LE(pace.next(true), kNow);
}

TEST(Pace, PauseIsASecondOrThreeTurns) {
    Pace pace{Pace::Settings()};
    pace.ended(kNow, milliseconds(1), true);
    EXPECT_EQ(pace.next(false), kNow + seconds(1));
    EXPECT_EQ(pace.next(true), kNow + seconds(1));
    pace.ended(kNow, seconds(2), true);
    EXPECT_EQ(pace.next(false), kNow + seconds(6));
    EXPECT_EQ(pace.next(true), kNow + seconds(6));
}

TEST(Pace, FailuresAreRetriedAfterGrowingDelays) {
    Pace pace{Pace::Settings()};
    for (const int delay : {1, 2, 4, 8, 16, 32, 60, 60}) {
        pace.ended(kNow, milliseconds(1), false);
        EXPECT_EQ(pace.next(false), kNow + seconds(delay));
        EXPECT_EQ(pace.next(true), kNow + seconds(1));
    }
    pace.ended(kNow, milliseconds(1), true);
    EXPECT_EQ(pace.next(false), kNow + seconds(1));
    pace.ended(kNow, milliseconds(1), false);
    pace.ended(kNow, milliseconds(1), false);
    EXPECT_EQ(pace.next(false), kNow + seconds(2));
}

}  // namespace
}  // namespace qv::host
