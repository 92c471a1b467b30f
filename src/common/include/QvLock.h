// The plug-ins' lock: a POSIX mutex and its scoped holder.
//
//     Mutex mutex;
//     {
//         Guard<Mutex> guard(mutex);
//         ... the data that `mutex` guards ...
//     }
//
// Both report failure by throwing a plain std::string, which the plug-ins let pass to their host.
#ifndef QV_LOCK_H
#define QV_LOCK_H

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace qor::kevra {

class Mutex {
  public:
    // Throws "fail to pthread_mutex_init". A shortage that may pass is waited out, without limit.
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
    void lock() {
        if (pthread_mutex_lock(&mutex_) != 0) {
            throw std::string("fail to get the lock");
        }
    }
    void unlock() { pthread_mutex_unlock(&mutex_); }

  private:
    static constexpr useconds_t kRetryMicroseconds = 100;

    pthread_mutex_t mutex_{};
};

// Holds a lock from construction, which throws what lock() throws, to the end of the scope.
template <class Lock>
class Guard {
  public:
    explicit Guard(Lock& lock) : lock_(lock) { lock_.lock(); }
    ~Guard() { lock_.unlock(); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

  private:
    Lock& lock_;
};

}  // namespace qor::kevra

#endif  // QV_LOCK_H
