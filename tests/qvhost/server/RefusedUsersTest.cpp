// SPDX-License-Identifier: Apache-2.0

#include "server/RefusedUsers.h"

#include <gtest/gtest.h>

#include <chrono>

namespace qv::host {
namespace {

using std::chrono::seconds;

constexpr RefusedUsers::Clock::time_point kStart;

TEST(RefusedUsers, UserIsReportedOnceAMinute) {
    RefusedUsers users;
    EXPECT_TRUE(users.isNews(501, kStart));
    EXPECT_FALSE(users.isNews(501, kStart));
    EXPECT_FALSE(users.isNews(501, kStart + seconds(59)));
    EXPECT_TRUE(users.isNews(501, kStart + seconds(60)));
    EXPECT_FALSE(users.isNews(501, kStart + seconds(61)));
}

TEST(RefusedUsers, EachUserHasAMinuteOfItsOwn) {
    RefusedUsers users;
    EXPECT_TRUE(users.isNews(501, kStart));
    EXPECT_TRUE(users.isNews(502, kStart + seconds(30)));
    EXPECT_TRUE(users.isNews(501, kStart + seconds(60)));
    EXPECT_FALSE(users.isNews(502, kStart + seconds(60)));
    EXPECT_TRUE(users.isNews(502, kStart + seconds(90)));
}

}  // namespace
}  // namespace qv::host
