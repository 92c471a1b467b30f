// SPDX-License-Identifier: Apache-2.0

// Runs an action in a thread that pthread_cancel() cancels.
#ifndef QV_TESTS_CANCELLED_THREAD_H
#define QV_TESTS_CANCELLED_THREAD_H

#include <pthread.h>

#include <functional>
#include <system_error>

namespace qv::tests {

// Performs the action in a thread that is cancelled before the action begins. Returns whether the
// thread ended only after the action, at the next cancellation point.
inline bool isCancelledAfter(const std::function<void()>& action) {
    struct Run {
        const std::function<void()>& action;
        bool isDone = false;
    };
    Run run{action};
    const auto body = [](void* argument) -> void* {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        pthread_cancel(pthread_self());
        pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
        Run& itsRun = *static_cast<Run*>(argument);
        itsRun.action();
        itsRun.isDone = true;
        pthread_testcancel();
        return nullptr;
    };
    pthread_t thread{};
    if (const int error = pthread_create(&thread, nullptr, body, &run); error != 0) {
        throw std::system_error(error, std::generic_category(), "pthread_create");
    }
    void* result = nullptr;
    pthread_join(thread, &result);
    return run.isDone && result == PTHREAD_CANCELED;
}

}  // namespace qv::tests

#endif  // QV_TESTS_CANCELLED_THREAD_H
