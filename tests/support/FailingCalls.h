// SPDX-License-Identifier: Apache-2.0

// Makes calls of the platform fail.
//
// A test program that links this file defines the functions itself, in front of the platform's
// libraries. Each function passes the call on unless a test has told it to fail. An order applies
// to the thread that gives it.
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

// The next malloc() of exactly `size` bytes returns null. Not with sanitizers, which replace
// malloc().
void failMallocOf(std::size_t size);

// The thread's next malloc() of exactly `size` bytes waits for resumeMalloc(). awaitStalledMalloc()
// returns when a thread waits there. One thread at a time. Not with sanitizers.
void stallMallocOf(std::size_t size);
void awaitStalledMalloc();
void resumeMalloc();

// After `count` successful calls of malloc(), calloc(), realloc() and the functions for aligned
// memory, the next call fails, and operator new throws. With failEveryMallocAfter(), all later
// calls fail also. mallocFailed() cancels the order and returns whether a call has failed.
void failMallocAfter(int count);
void failEveryMallocAfter(int count);
bool mallocFailed();

// Returns the number of allocations that are not freed yet. Not with sanitizers.
long liveAllocations();

// The next SerializeToArray() of any message writes nothing and returns false.
void failNextSerialization();

}  // namespace qv::tests

#endif  // QV_TESTS_FAILING_CALLS_H
