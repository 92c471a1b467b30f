// SPDX-License-Identifier: Apache-2.0

// What a lock guards, in words that clang checks (-Wthread-safety); other compilers ignore them.
//
//     Mutex mutex;
//     int count QV_GUARDED_BY(mutex);           // only read and written while `mutex` is held
//     void increment() QV_REQUIRES(mutex);      // only called while `mutex` is held
//
//     Condition changed;
//     MutexLock lock(mutex);
//     while (count == 0) {
//         changed.wait(mutex);
//     }
#ifndef QV_SYSTEM_THREAD_SAFETY_H
#define QV_SYSTEM_THREAD_SAFETY_H

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define QV_THREAD_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define QV_THREAD_ATTRIBUTE(attribute)
#endif

// For a class that is a lock, and for a class that holds one from construction to destruction.
#define QV_CAPABILITY(name) QV_THREAD_ATTRIBUTE(capability(name))
#define QV_SCOPED_CAPABILITY QV_THREAD_ATTRIBUTE(scoped_lockable)

// For data.
#define QV_GUARDED_BY(mutex) QV_THREAD_ATTRIBUTE(guarded_by(mutex))

// For functions.
#define QV_REQUIRES(...) QV_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define QV_ACQUIRE(...) QV_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define QV_RELEASE(...) QV_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define QV_NO_THREAD_SAFETY_ANALYSIS QV_THREAD_ATTRIBUTE(no_thread_safety_analysis)

namespace qv::system {

// std::mutex and std::lock_guard, which clang does not know to be locks in every standard library.
class QV_CAPABILITY("mutex") Mutex {
  public:
    void lock() QV_ACQUIRE() { mutex_.lock(); }
    void unlock() QV_RELEASE() { mutex_.unlock(); }

  private:
    friend class Condition;

    std::mutex mutex_;
};

class QV_SCOPED_CAPABILITY MutexLock {
  public:
    explicit MutexLock(Mutex& mutex) QV_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~MutexLock() QV_RELEASE() { mutex_.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    Mutex& mutex_;
};

// std::condition_variable for a Mutex. std::condition_variable_any has a lock of its own, which a
// thread that is woken finds taken if it runs at once.
class Condition {
  public:
    // Unlocks the mutex while it waits. May return without a notification.
    void wait(Mutex& mutex) QV_REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
        condition_.wait(lock);
        lock.release();
    }

    // Waits in the same way, and returns false if the time has come.
    bool waitUntil(Mutex& mutex, std::chrono::steady_clock::time_point time) QV_REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
        const std::cv_status status = condition_.wait_until(lock, time);
        lock.release();
        return status == std::cv_status::no_timeout;
    }

    void notifyOne() noexcept { condition_.notify_one(); }
    void notifyAll() noexcept { condition_.notify_all(); }

  private:
    std::condition_variable condition_;
};

}  // namespace qv::system

#endif  // QV_SYSTEM_THREAD_SAFETY_H
