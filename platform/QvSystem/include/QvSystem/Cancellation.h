// SPDX-License-Identifier: Apache-2.0

// Cancellation of threads with pthread_cancel().
#ifndef QV_SYSTEM_CANCELLATION_H
#define QV_SYSTEM_CANCELLATION_H

#include <pthread.h>

namespace qv::system {

// Keeps the calling thread from being cancelled as long as the object exists. A request to cancel
// the thread waits, and takes effect at the first cancellation point afterwards.
//
// Cancellation unwinds the stack from inside calls such as write(). A function that catches every
// exception, or that must not throw, would end the process then.
class CancellationGuard {
  public:
    CancellationGuard() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &formerState_); }
    ~CancellationGuard() { pthread_setcancelstate(formerState_, nullptr); }
    CancellationGuard(const CancellationGuard&) = delete;
    CancellationGuard& operator=(const CancellationGuard&) = delete;

  private:
    int formerState_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace qv::system

#endif  // QV_SYSTEM_CANCELLATION_H
