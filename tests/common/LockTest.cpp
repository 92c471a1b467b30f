// SPDX-License-Identifier: Apache-2.0

// Tests the lock and its guard.

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <string>

#include "QvLock.h"
#include "support/FailingCalls.h"

namespace qv::tests {
namespace {

using qor::kevra::Guard;
using qor::kevra::Mutex;

template <class Action>
std::string thrownBy(Action action) {
    try {
        action();
    } catch (const std::string& text) {
        return text;
    }
    return "nothing";
}

TEST(Mutex, CreationIsRetriedWithoutLimitDuringAShortage) {
    failMutexInit(20, EAGAIN);
    const Mutex mutex;
    EXPECT_EQ(shortSleeps(), 20);
}

TEST(Mutex, OtherFailureIsThrown) {
    for (const int error : {ENOMEM, EPERM, EINVAL}) {
        failMutexInit(1, error);
        EXPECT_EQ(thrownBy([] { const Mutex mutex; }), "fail to pthread_mutex_init");
    }
    EXPECT_EQ(shortSleeps(), 0);
}

TEST(Mutex, FailureAfterAShortageIsThrown) {
    failMutexInit(1, EAGAIN);
    EXPECT_EQ(thrownBy([] {
                  const Mutex mutex;
                  failMutexInit(1, ENOMEM);
                  const Mutex other;
              }),
              "fail to pthread_mutex_init");
}

TEST(Mutex, IsDestroyedOnceUnlessItCouldNotBeMade) {
    const int before = destroyedMutexes();
    { const Mutex mutex; }
    EXPECT_EQ(destroyedMutexes(), before + 1);
    failMutexInit(1, ENOMEM);
    EXPECT_EQ(thrownBy([] { const Mutex mutex; }), "fail to pthread_mutex_init");
    EXPECT_EQ(destroyedMutexes(), before + 1);
}

// Counts how often a guard holds the lock.
class RecordingLock {
  public:
    void lock() {
        if (refuses) {
            throw std::string("fail to get the lock");
        }
        ++held;
    }
    void unlock() { --held; }

    bool refuses = false;
    int held = 0;
};

TEST(Guard, HoldsTheLockForItsScope) {
    RecordingLock lock;
    {
        const Guard<RecordingLock> guard(lock);
        EXPECT_EQ(lock.held, 1);
    }
    EXPECT_EQ(lock.held, 0);
}

TEST(Guard, ReleasesTheLockWhenAnExceptionLeaves) {
    RecordingLock lock;
    EXPECT_THROW(
        {
            const Guard<RecordingLock> guard(lock);
            throw std::runtime_error("leaves");
        },
        std::runtime_error);
    EXPECT_EQ(lock.held, 0);
}

TEST(Guard, LockThatCannotBeTakenIsNotReleased) {
    RecordingLock lock;
    lock.refuses = true;
    EXPECT_EQ(thrownBy([&] { const Guard<RecordingLock> guard(lock); }), "fail to get the lock");
    EXPECT_EQ(lock.held, 0);
}

TEST(Guard, FailureOfTheMutexIsThrown) {
    Mutex mutex;
    failMutexLock(1, EINVAL);
    EXPECT_EQ(thrownBy([&] { const Guard<Mutex> guard(mutex); }), "fail to get the lock");
    const Guard<Mutex> guard(mutex);
}

}  // namespace
}  // namespace qv::tests
