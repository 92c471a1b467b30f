// SPDX-License-Identifier: Apache-2.0

// Keeps a server and this program, its client, on one processor for as long as the object lives.
// Two processes that only wait for each other gain nothing from a second processor. On a virtual
// machine, waking a second processor costs several times as much as the request.
#ifndef QV_BENCH_ONE_PROCESSOR_H
#define QV_BENCH_ONE_PROCESSOR_H

#include <sched.h>
#include <sys/types.h>

#include <vector>

namespace qv::bench {

class OneProcessor {
  public:
    // Throws std::exception.
    explicit OneProcessor(pid_t server);
    ~OneProcessor();

    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

  private:
    // The processors that this program, and the server that it started, had before.
    cpu_set_t all_ = {};
    std::vector<pid_t> threads_;
};

}  // namespace qv::bench

#endif  // QV_BENCH_ONE_PROCESSOR_H
