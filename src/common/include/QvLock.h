// SPDX-License-Identifier: Apache-2.0

// The plug-ins' lock: a POSIX mutex and its scoped holder.
//
//     Mutex mutex;
//     {
//         Guard<Mutex> guard(mutex);
//         ... the data that `mutex` guards ...
//     }
//
// Both report a failure by throwing a plain std::string, which nothing in a plug-in catches: the
// host gets it (compatibility C10).
#ifndef QV_LOCK_H
#define QV_LOCK_H

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "QvSystem/ThreadSafety.h"

namespace qor::kevra {

class QV_CAPABILITY("mutex") Mutex {
  public:
    // Waits without limit while the system is short of resources for a mutex. Throws "fail to
    // pthread_mutex_init" on any other error.
    Mutex() {
        int result = pthread_mutex_init(&mutex_, nullptr);
        while (result == EAGAIN) {
            usleep(kRetryMicroseconds);
            result = pthread_mutex_init(&mutex_, nullptr);
        }
        if (result != 0) {
            throw std::string("fail to pthread_mutex_init");
        }
    }
    ~Mutex() { pthread_mutex_destroy(&mutex_); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    // Throws "fail to get the lock"; the lock is not held then.
    void lock() QV_ACQUIRE() {
        if (pthread_mutex_lock(&mutex_) != 0) {
            throw std::string("fail to get the lock");
        }
    }
    void unlock() QV_RELEASE() { pthread_mutex_unlock(&mutex_); }

  private:
    static constexpr useconds_t kRetryMicroseconds = 100;

    pthread_mutex_t mutex_{};
};

// Holds a lock from construction to the end of the scope. Construction throws what lock() throws.
template <class Lock>
class QV_SCOPED_CAPABILITY Guard {
  public:
    explicit Guard(Lock& lock) QV_ACQUIRE(lock) : lock_(lock) { lock_.lock(); }
    ~Guard() QV_RELEASE() { lock_.unlock(); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

  private:
    Lock& lock_;
};

}  // namespace qor::kevra

#endif  // QV_LOCK_H
