// SPDX-License-Identifier: Apache-2.0

#include "server/Access.h"

#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "qvhost/server/Users.h"

namespace qv::host {
namespace {

Peer peer(uid_t user, std::vector<gid_t> groups) {
    return {user, std::move(groups)};
}

TEST(Access, OwnerAndRootMayAlwaysConnect) {
    EXPECT_TRUE(mayUse(peer(kOwner, {1}), kOwner, {}));
    EXPECT_TRUE(mayUse(peer(0, {1}), kOwner, {}));
    EXPECT_FALSE(mayUse(peer(kOther, {0}), kOwner, {}));
    EXPECT_FALSE(mayUse(peer(kOther, {1}), 0, {}));
}

TEST(Access, RulesLetOthersIn) {
    AccessRules rules;
    rules.users = {600, 601};
    rules.groups = {70};
    EXPECT_TRUE(mayUse(peer(601, {1}), kOwner, rules));
    EXPECT_TRUE(mayUse(peer(700, {70}), kOwner, rules));
    EXPECT_TRUE(mayUse(peer(700, {1, 2, 70}), kOwner, rules));
    EXPECT_FALSE(mayUse(peer(70, {600, 601}), kOwner, rules));
    EXPECT_FALSE(mayUse(peer(700, {}), kOwner, rules));
}

TEST(Access, OwnerNeedsNoRule) {
    AccessRules rules;
    EXPECT_TRUE(rules.forOwnerOnly());
    rules.groups = {70};
    EXPECT_FALSE(rules.forOwnerOnly());
    rules = {};
    rules.users = {600};
    EXPECT_FALSE(rules.forOwnerOnly());
}

TEST(Access, PeerIsTheProcessAtTheOtherEnd) {
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    const Peer self = peerOf(ends[0]);
    EXPECT_EQ(self.user, ::geteuid());
    EXPECT_EQ(self.groups.front(), ::getegid());
    ::close(ends[0]);
    ::close(ends[1]);
    EXPECT_THROW(peerOf(ends[0]), std::system_error);
}

// The process has more groups than the first request asks for.
TEST(Access, PeersFurtherGroupsAreKnown) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can choose its groups";
    }
    const pid_t child = ::fork();
    if (child == 0) {
        std::vector<gid_t> groups;
        for (gid_t group = 1000; group < 1100; ++group) {
            groups.push_back(group);
        }
        int ends[2];
        EXPECT_EQ(::setgroups(groups.size(), groups.data()), 0);
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        EXPECT_THAT(peerOf(ends[0]).groups, testing::IsSupersetOf(groups));
        ::_exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(Access, NamesAndNumbersAreKnown) {
    const passwd* const user = ::getpwuid(0);
    ASSERT_NE(user, nullptr);
    EXPECT_EQ(userNamed(user->pw_name), 0U);
    EXPECT_EQ(userNamed("0"), 0U);
    EXPECT_EQ(userNamed("4294967294"), 4294967294U);
    const group* const group = ::getgrgid(0);
    ASSERT_NE(group, nullptr);
    EXPECT_EQ(groupNamed(group->gr_name), 0U);
    EXPECT_EQ(groupNamed("12345"), 12345U);
}

TEST(Access, UnknownNameIsRefused) {
    for (const char* name : {"", "no such user", "-1", "4294967295", "4294967296", "1x", " 1"}) {
        EXPECT_THROW(userNamed(name), std::runtime_error) << name;
        EXPECT_THROW(groupNamed(name), std::runtime_error) << name;
    }
}

}  // namespace
}  // namespace qv::host
