// SPDX-License-Identifier: Apache-2.0

// Runs actions as a user without special rights, also if root runs the tests.
#ifndef QV_TESTS_OTHER_USER_H
#define QV_TESTS_OTHER_USER_H

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace qv::tests {

// Runs the action in a child process. If root runs the tests, the child runs as the user nobody,
// who first becomes the owner of the directory and its contents. The test fails if an expectation
// in the action fails.
template <class Action>
void asOrdinaryUser(const std::string& directory, Action action) {
    constexpr uid_t kNobody = 65534;
    const bool isRoot = ::geteuid() == 0;
    if (isRoot) {
        ASSERT_EQ(::chown(directory.c_str(), kNobody, kNobody), 0);
        for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
            // A link changes its owner but its target does not, which may be a device of the
            // system.
            ASSERT_EQ(::lchown(entry.path().c_str(), kNobody, kNobody), 0);
        }
    }
    std::fflush(nullptr);
    const pid_t child = ::fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        const bool isOrdinary = !isRoot || (::setgroups(0, nullptr) == 0 &&
                                            ::setgid(kNobody) == 0 && ::setuid(kNobody) == 0);
        EXPECT_TRUE(isOrdinary);
        if (isOrdinary) {
            action();
        }
        std::fflush(nullptr);
        ::_exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "an expectation of the child failed";
}

}  // namespace qv::tests

#endif  // QV_TESTS_OTHER_USER_H
