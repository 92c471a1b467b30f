// SPDX-License-Identifier: Apache-2.0

#include "support/FailingCalls.h"

#include <dlfcn.h>
#include <google/protobuf/message_lite.h>
#include <malloc.h>
#include <pthread.h>
#include <semaphore.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

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
thread_local int destroyed = 0;
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

int destroyedMutexes() {
    return destroyed;
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

QV_INTERPOSED int pthread_mutex_destroy(pthread_mutex_t* mutex) noexcept {
    static const auto pass = next<int (*)(pthread_mutex_t*)>("pthread_mutex_destroy");
    ++destroyed;
    return pass(mutex);
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
thread_local std::size_t stalledSize = 0;
thread_local int mallocsUntilFailure = -1;
thread_local bool laterOnesFail = false;
thread_local bool aMallocFailed = false;
thread_local long allocations = 0;

void failAfter(int count, bool laterOnes) {
    mallocsUntilFailure = count;
    laterOnesFail = laterOnes;
    aMallocFailed = false;
}

bool mallocFails() {
    if (mallocsUntilFailure < 0 || mallocsUntilFailure-- > 0) {
        return false;
    }
    if (laterOnesFail) {
        mallocsUntilFailure = 0;
    }
    aMallocFailed = true;
    return true;
}

// Wraps a semaphore, because the functions here must not allocate.
struct Semaphore {
    Semaphore() { sem_init(&value, 0, 0); }
    ~Semaphore() { sem_destroy(&value); }
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    void post() { sem_post(&value); }
    void wait() {
        while (sem_wait(&value) != 0) {
        }
    }

    sem_t value{};
};

Semaphore& mallocStalls() {
    static Semaphore semaphore;
    return semaphore;
}

Semaphore& mallocMayGoOn() {
    static Semaphore semaphore;
    return semaphore;
}

bool mallocFails(std::size_t size) {
    if (size == stalledSize && size != 0) {
        stalledSize = 0;
        mallocStalls().post();
        mallocMayGoOn().wait();
    }
    if (size == refusedSize && size != 0) {
        refusedSize = 0;
        return true;
    }
    return mallocFails();
}

// Allocates with memalign(), which this file does not replace.
void* allocate(std::size_t alignment, std::size_t size) {
    void* const memory = memalign(alignment, size);
    if (memory != nullptr) {
        ++allocations;
    }
    return memory;
}

}  // namespace

namespace qv::tests {

void failMallocOf(std::size_t size) {
    refusedSize = size;
}

void stallMallocOf(std::size_t size) {
    stalledSize = size;
}

void awaitStalledMalloc() {
    mallocStalls().wait();
}

void resumeMalloc() {
    mallocMayGoOn().post();
}

void failMallocAfter(int count) {
    failAfter(count, false);
}

void failEveryMallocAfter(int count) {
    failAfter(count, true);
}

bool mallocFailed() {
    mallocsUntilFailure = -1;
    return aMallocFailed;
}

long liveAllocations() {
    return allocations;
}

}  // namespace qv::tests

QV_INTERPOSED void* malloc(std::size_t size) {
    return mallocFails(size) ? nullptr : allocate(alignof(std::max_align_t), size);
}

QV_INTERPOSED void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return mallocFails() ? nullptr : allocate(alignment, size);
}

QV_INTERPOSED int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
    void* const made = mallocFails() ? nullptr : allocate(alignment, size);
    if (made == nullptr) {
        return ENOMEM;
    }
    *memory = made;
    return 0;
}

QV_INTERPOSED void* calloc(std::size_t count, std::size_t size) {
    std::size_t bytes = 0;
    if (__builtin_mul_overflow(count, size, &bytes) || mallocFails()) {
        return nullptr;
    }
    void* const memory = allocate(alignof(std::max_align_t), bytes);
    return memory == nullptr ? nullptr : std::memset(memory, 0, bytes);
}

QV_INTERPOSED void* realloc(void* memory, std::size_t size) {
    static const auto pass = next<void* (*)(void*, std::size_t)>("realloc");
    if (memory == nullptr) {
        return std::malloc(size);
    }
    if (mallocFails()) {
        return nullptr;
    }
    void* const moved = pass(memory, size);
    if (moved == nullptr && size == 0) {
        --allocations;
    }
    return moved;
}

QV_INTERPOSED void free(void* memory) {
    static const auto pass = next<void (*)(void*)>("free");
    if (memory != nullptr) {
        --allocations;
    }
    pass(memory);
}

#endif  // QV_SANITIZED
