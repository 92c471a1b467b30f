// SPDX-License-Identifier: Apache-2.0

#include "QvSystem/ThreadSafety.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace qv::system {
namespace {

using Clock = std::chrono::steady_clock;

struct Counter {
    Mutex mutex;
    Condition changed;
    int count QV_GUARDED_BY(mutex) = 0;

    void increment() {
        const MutexLock lock(mutex);
        ++count;
    }
};

TEST(Condition, WaitsForAnotherThread) {
    Counter counter;
    std::thread other;
    {
        const MutexLock lock(counter.mutex);
        // The other thread cannot count before this one waits.
        other = std::thread([&counter] {
            counter.increment();
            counter.changed.notifyOne();
        });
        while (counter.count == 0) {
            counter.changed.wait(counter.mutex);
        }
        EXPECT_EQ(counter.count, 1);
    }
    other.join();
}

TEST(Condition, WaitsForAnotherThreadUntilATime) {
    Counter counter;
    std::thread other;
    {
        const MutexLock lock(counter.mutex);
        // The other thread cannot count before this one waits.
        other = std::thread([&counter] {
            counter.increment();
            counter.changed.notifyAll();
        });
        while (counter.count == 0) {
            counter.changed.waitUntil(counter.mutex, Clock::now() + std::chrono::hours(1));
        }
        EXPECT_EQ(counter.count, 1);
    }
    other.join();
}

TEST(Condition, TellsThatTheTimeHasCome) {
    Counter counter;
    const MutexLock lock(counter.mutex);
    EXPECT_FALSE(counter.changed.waitUntil(counter.mutex, Clock::now()));
}

TEST(Condition, HoldsTheMutexAfterItHasWaited) {
    Counter counter;
    {
        const MutexLock lock(counter.mutex);
        counter.changed.waitUntil(counter.mutex, Clock::now());
        counter.count = 1;
    }
    counter.increment();
    const MutexLock lock(counter.mutex);
    EXPECT_EQ(counter.count, 2);
}

}  // namespace
}  // namespace qv::system
