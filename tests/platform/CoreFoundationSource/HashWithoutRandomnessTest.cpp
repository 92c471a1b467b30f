// SPDX-License-Identifier: Apache-2.0

// Tests the hash of a process that starts before the system has gathered randomness.

#include <gtest/gtest.h>
#include <sys/random.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "Hash.h"

// Replaces the function of the C library.
extern "C" ssize_t getrandom(void* /*buffer*/, size_t /*length*/, unsigned /*flags*/) {
    errno = EAGAIN;
    return -1;
}

namespace {

CFHashCode hashOf(std::string_view text) {
    return cf::hashBytes(text.data(), text.size());
}

// Returns the hash from a child process, which creates a key of its own.
CFHashCode hashInAnotherProcess(std::string_view text) {
    int ends[2] = {};
    EXPECT_EQ(::pipe(ends), 0);
    const pid_t child = ::fork();
    EXPECT_NE(child, -1);
    if (child == 0) {
        const CFHashCode hash = hashOf(text);
        const bool isWritten = ::write(ends[1], &hash, sizeof hash) == sizeof hash;
        ::_exit(isWritten ? 0 : 1);
    }
    ::close(ends[1]);
    CFHashCode hash = 0;
    EXPECT_EQ(::read(ends[0], &hash, sizeof hash), static_cast<ssize_t>(sizeof hash));
    ::close(ends[0]);
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    return hash;
}

TEST(HashWithoutRandomness, DiffersBetweenProcesses) {
    EXPECT_NE(hashInAnotherProcess("text"), hashInAnotherProcess("text"));
}

TEST(HashWithoutRandomness, IsTheSameWithinAProcess) {
    EXPECT_EQ(hashOf("text"), hashOf("text"));
    EXPECT_NE(hashOf("text"), hashOf("texts"));
    EXPECT_NE(hashOf(""), hashOf(std::string_view("\0", 1)));
}

}  // namespace
