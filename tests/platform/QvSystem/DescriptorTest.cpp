// SPDX-License-Identifier: Apache-2.0

#include "QvSystem/Descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

namespace qv::system {
namespace {

Descriptor openSomething() {
    return Descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
}

bool isOpen(int number) {
    return ::fcntl(number, F_GETFD) != -1;
}

TEST(Descriptor, IsNoneAtFirst) {
    const Descriptor none;
    EXPECT_FALSE(none);
    EXPECT_EQ(none.get(), -1);
}

TEST(Descriptor, IsClosedAtItsEnd) {
    int number = -1;
    {
        const Descriptor descriptor = openSomething();
        ASSERT_TRUE(descriptor);
        number = descriptor.get();
        EXPECT_TRUE(isOpen(number));
    }
    EXPECT_FALSE(isOpen(number));
}

TEST(Descriptor, MovesWithoutBeingClosed) {
    Descriptor first = openSomething();
    const int number = first.get();
    Descriptor second(std::move(first));
    EXPECT_EQ(second.get(), number);
    Descriptor third = openSomething();
    const int replaced = third.get();
    third = std::move(second);
    EXPECT_EQ(third.get(), number);
    EXPECT_TRUE(isOpen(number));
    EXPECT_FALSE(isOpen(replaced));
}

TEST(Descriptor, ReleasedIsNotClosed) {
    Descriptor descriptor = openSomething();
    const Descriptor owner(descriptor.release());
    EXPECT_FALSE(descriptor);
    EXPECT_TRUE(isOpen(owner.get()));
}

TEST(Descriptor, ResetClosesTheOldOne) {
    Descriptor descriptor = openSomething();
    const int number = descriptor.get();
    descriptor.reset();
    EXPECT_FALSE(descriptor);
    EXPECT_FALSE(isOpen(number));
}

TEST(Descriptor, ClosingKeepsErrno) {
    // Closing a number that is not open sets errno.
    Descriptor closed = openSomething();
    ::close(closed.get());
    errno = ENOENT;
    closed.reset();
    EXPECT_EQ(errno, ENOENT);
}

}  // namespace
}  // namespace qv::system
