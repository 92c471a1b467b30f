// SPDX-License-Identifier: Apache-2.0

#include "server/Shares.h"

#include <gtest/gtest.h>

#include "qvhost/server/Users.h"

namespace qv::host {
namespace {

using Bound = Shares::Bound;

TEST(Shares, EachUserHasABoundOfItsOwn) {
    const Shares shares(1600, kOwner);
    EXPECT_EQ(shares.mostOf(kOther), 400U);
    EXPECT_EQ(shares.mostOf(kOwner), 1500U);
    EXPECT_EQ(shares.mostOf(kRoot), 1600U);
}

TEST(Shares, OneUserGetsAQuarter) {
    Shares shares(1600, kOwner);
    Shares::User& user = shares.join(kOther);
    EXPECT_EQ(shares.boundOf(user, 400), Bound::None);
    EXPECT_EQ(shares.boundOf(user, 401), Bound::OfOneUser);
    shares.take(user, 300);
    EXPECT_EQ(shares.boundOf(user, 100), Bound::None);
    EXPECT_EQ(shares.boundOf(user, 101), Bound::OfOneUser);
    EXPECT_EQ(shares.boundOf(shares.join(kOther + 1), 400), Bound::None);
}

TEST(Shares, OtherUsersLeaveAQuarterToTheOwnerAndRoot) {
    Shares shares(1600, kOwner);
    for (uid_t user = kOther; user < kOther + 3; ++user) {
        shares.take(shares.join(user), 400);
    }
    EXPECT_EQ(shares.boundOf(shares.join(kOther + 3), 1), Bound::OfOthers);
    EXPECT_EQ(shares.boundOf(shares.join(kOwner), 300), Bound::None);
    EXPECT_EQ(shares.boundOf(shares.join(kRoot), 400), Bound::None);
}

TEST(Shares, OwnerLeavesASixteenthToRoot) {
    Shares shares(1600, kOwner);
    Shares::User& owner = shares.join(kOwner);
    EXPECT_EQ(shares.boundOf(owner, 1501), Bound::OfAllButRoot);
    shares.take(owner, 1500);
    EXPECT_EQ(shares.boundOf(shares.join(kOther), 1), Bound::OfAllButRoot);
    Shares::User& root = shares.join(kRoot);
    EXPECT_EQ(shares.boundOf(root, 101), Bound::OfAll);
    shares.take(root, 100);
    EXPECT_EQ(shares.used(), 1600U);
}

TEST(Shares, WhatIsGivenBackCanBeTakenAgain) {
    Shares shares(1600, kOwner);
    Shares::User& user = shares.join(kOther);
    shares.take(user, 400);
    shares.giveBack(user, 150);
    EXPECT_EQ(user.used, 250U);
    EXPECT_EQ(shares.used(), 250U);
    EXPECT_EQ(shares.boundOf(user, 150), Bound::None);
    EXPECT_EQ(shares.boundOf(user, 151), Bound::OfOneUser);
}

TEST(Shares, UserIsKnownUntilItHasLeftAsOftenAsJoined) {
    Shares shares(1600, kOwner);
    Shares::User& user = shares.join(kOther);
    EXPECT_EQ(&shares.join(kOther), &user);
    shares.take(user, 7);
    shares.leave(user);
    EXPECT_EQ(shares.join(kOther).used, 7U);
    shares.giveBack(user, 7);
    user.isMarked = true;
    shares.leave(user);
    shares.leave(user);
    EXPECT_FALSE(shares.join(kOther).isMarked);
}

TEST(Shares, UserNeedNotHaveJoinedToBeAskedFor) {
    Shares shares(1600, kOwner);
    EXPECT_EQ(shares.boundOf(shares.userOf(kOther), 400), Bound::None);
    EXPECT_EQ(shares.boundOf(shares.userOf(kOther), 401), Bound::OfOneUser);
    EXPECT_EQ(shares.boundOf(shares.userOf(kOwner), 1501), Bound::OfAllButRoot);
    shares.take(shares.join(kOther), 7);
    EXPECT_EQ(shares.userOf(kOther).used, 7U);
}

TEST(Shares, FewPlacesAreEnoughForAnybody) {
    const Shares one(1, kOwner);
    EXPECT_EQ(one.mostOf(kOther), 1U);
    EXPECT_EQ(one.mostOf(kOwner), 1U);
    EXPECT_EQ(one.mostOf(kRoot), 1U);
    const Shares two(2, kRoot);
    EXPECT_EQ(two.mostOf(kRoot), 2U);
}

}  // namespace
}  // namespace qv::host
