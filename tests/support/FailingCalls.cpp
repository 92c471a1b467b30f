#include "support/FailingCalls.h"

#include <dlfcn.h>
#include <google/protobuf/message_lite.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdlib>

namespace {

struct Failure {
    int count = 0;
    int error = 0;

    bool happens() {
        if (count == 0) {
            return false;
        }
        --count;
        return true;
    }
};

thread_local Failure mutexLock;
thread_local Failure mutexInit;
thread_local int sleeps = 0;
thread_local bool serializationFails = false;

template <class Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

namespace qv::tests {

void failMutexLock(int count, int error) {
    mutexLock = {count, error};
}

void failMutexInit(int count, int error) {
    mutexInit = {count, error};
    sleeps = 0;
}

int shortSleeps() {
    return sleeps;
}

void failNextSerialization() {
    serializationFails = true;
}

}  // namespace qv::tests

#define QV_INTERPOSED extern "C" __attribute__((visibility("default")))

QV_INTERPOSED int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    static const auto pass = next<int (*)(pthread_mutex_t*)>("pthread_mutex_lock");
    return mutexLock.happens() ? mutexLock.error : pass(mutex);
}

QV_INTERPOSED int pthread_mutex_init(pthread_mutex_t* mutex,
                                     const pthread_mutexattr_t* attributes) noexcept {
    static const auto pass =
        next<int (*)(pthread_mutex_t*, const pthread_mutexattr_t*)>("pthread_mutex_init");
    return mutexInit.happens() ? mutexInit.error : pass(mutex, attributes);
}

QV_INTERPOSED int usleep(useconds_t microseconds) {
    static const auto pass = next<int (*)(useconds_t)>("usleep");
    if (microseconds == 100) {
        ++sleeps;
    }
    return pass(microseconds);
}

bool google::protobuf::MessageLite::SerializeToArray(void* data, int size) const {
    if (serializationFails) {
        serializationFails = false;
        return false;
    }
    return SerializePartialToArray(data, size);
}

#ifndef QV_SANITIZED

namespace {

thread_local std::size_t refusedSize = 0;
thread_local int mallocsUntilFailure = -1;

bool mallocFails(std::size_t size) {
    if (size == refusedSize && size != 0) {
        refusedSize = 0;
        return true;
    }
    return mallocsUntilFailure >= 0 && mallocsUntilFailure-- == 0;
}

}  // namespace

namespace qv::tests {

void failMallocOf(std::size_t size) {
    refusedSize = size;
}

void failMallocAfter(int count) {
    mallocsUntilFailure = count;
}

bool mallocFailed() {
    const bool failed = mallocsUntilFailure < 0;
    mallocsUntilFailure = -1;
    return failed;
}

}  // namespace qv::tests

QV_INTERPOSED void* malloc(std::size_t size) {
    if (mallocFails(size)) {
        return nullptr;
    }
    // The same memory by another name, which is not taken over here.
    return std::aligned_alloc(alignof(std::max_align_t), size);
}

#endif  // QV_SANITIZED
