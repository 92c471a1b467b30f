// SPDX-License-Identifier: Apache-2.0

// Shows that a failure in a confined action is a failure of the calling test. The tests of hostile
// documents rely on this.

#include "platform/CoreFoundation/Confined.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <csignal>
#include <cstdlib>
#include <vector>

namespace qv::tests {
namespace {

TEST(Confined, FailureOfTheActionFailsTheTest) {
    EXPECT_NONFATAL_FAILURE(confined([] { ADD_FAILURE() << "the test provokes this failure"; }),
                            "in the child");
}

TEST(Confined, DeathOfTheChildFailsTheTest) {
    EXPECT_NONFATAL_FAILURE(confined([] { std::_Exit(3); }), "in the child");
    EXPECT_NONFATAL_FAILURE(confined([] { std::raise(SIGKILL); }), "signal 9");
}

TEST(Confined, ActionDoesNotChangeTheCallingProcess) {
    int value = 1;
    confined([&value] { value = 2; });
    EXPECT_EQ(value, 1);
}

// Under the sanitizers the memory has no limit and the stack is larger.
#ifndef QV_SANITIZED
TEST(Confined, MemoryHasALimit) {
    confined([] {
        constexpr std::size_t kMegabyte = 1UL << 20;
        std::free(std::malloc(100 * kMegabyte));
        EXPECT_EQ(std::malloc(300 * kMegabyte), nullptr);
        std::vector<void*> blocks;
        while (void* const block = std::malloc(kMegabyte)) {
            blocks.push_back(block);
        }
        EXPECT_GT(blocks.size(), 200U);
        EXPECT_LE(blocks.size(), 256U);
        for (void* const block : blocks) {
            std::free(block);
        }
    });
}

TEST(SmallStack, Has512KiB) {
    std::size_t size = 0;
    onSmallStack([&size] {
        pthread_attr_t attributes;
        ASSERT_EQ(pthread_getattr_np(pthread_self(), &attributes), 0);
        pthread_attr_getstacksize(&attributes, &size);
        pthread_attr_destroy(&attributes);
    });
    EXPECT_EQ(size, 512U * 1024);
}
#endif

}  // namespace
}  // namespace qv::tests
