// Calls of the platform that fail when a test wants them to.
//
// A test program that links this file defines the functions itself, in front of the platform's
// libraries; each passes the call on unless it was told to fail. What is told holds for the thread
// that tells it.
#ifndef QV_TESTS_FAILING_CALLS_H
#define QV_TESTS_FAILING_CALLS_H

#include <cstddef>

namespace qv::tests {

// The next `count` calls of pthread_mutex_lock() return `error` and lock nothing.
void failMutexLock(int count, int error);

// The next `count` calls of pthread_mutex_init() return `error`. The number of sleeps of exactly
// 100 microseconds since then is counted.
void failMutexInit(int count, int error);
int shortSleeps();

// How often the thread has called pthread_mutex_destroy().
int destroyedMutexes();

// The next malloc() of exactly `size` bytes gives null. Not with sanitizers, which have their own.
void failMallocOf(std::size_t size);

// The thread's next malloc() of exactly `size` bytes waits for resumeMalloc(). awaitStalledMalloc()
// returns when a thread waits there. One thread at a time. Not with sanitizers.
void stallMallocOf(std::size_t size);
void awaitStalledMalloc();
void resumeMalloc();

// After `count` calls of malloc(), calloc(), realloc() and those for aligned memory that work, the
// next gives null, and operator new throws; with the second function, so do all after it. The third
// takes the order back and says whether it was carried out.
void failMallocAfter(int count);
void failEveryMallocAfter(int count);
bool mallocFailed();

// How many times they gave new memory, less those that free() took some back. What an action leaves
// behind is what the number has grown by. Not with sanitizers.
long liveAllocations();

// The next SerializeToArray() of any message writes nothing and is false.
void failNextSerialization();

}  // namespace qv::tests

#endif  // QV_TESTS_FAILING_CALLS_H
