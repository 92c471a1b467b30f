// SPDX-License-Identifier: Apache-2.0

// Keeps a second thread asleep while the object lives. The C library avoids locked instructions in
// a process of one thread, but a real host has several threads.
#ifndef QV_BENCH_SLEEPING_THREAD_H
#define QV_BENCH_SLEEPING_THREAD_H

#include <future>
#include <thread>

namespace qv::bench {

class SleepingThread {
  public:
    SleepingThread() : thread_([end = end_.get_future()] { end.wait(); }) {}
    ~SleepingThread() {
        end_.set_value();
        thread_.join();
    }
    SleepingThread(const SleepingThread&) = delete;
    SleepingThread& operator=(const SleepingThread&) = delete;

  private:
    std::promise<void> end_;
    std::thread thread_;
};

}  // namespace qv::bench

#endif  // QV_BENCH_SLEEPING_THREAD_H
