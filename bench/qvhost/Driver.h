// SPDX-License-Identifier: Apache-2.0

// Drives N connections on one thread. Each client has one request under way. All figures contain
// the work of the driver itself.
#ifndef QV_BENCH_DRIVER_H
#define QV_BENCH_DRIVER_H

#include <asio/io_context.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "Subject.h"

namespace qv::bench {

class Driver {
  public:
    // Connects clients that do this work, and asks for the answers that the clients expect. Any
    // other answer makes run() and runFor() throw std::runtime_error.
    Driver(Subject& subject, Work work, int clients);
    ~Driver();

    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;

    // Sends `count` requests and returns when all are answered.
    void run(std::int64_t count);

    // Sends requests for this long, and returns their number when all are answered.
    std::int64_t runFor(std::chrono::steady_clock::duration time);

  private:
    class Client;

    asio::io_context context_{1};
    std::int64_t unsent_ = 0;
    std::vector<std::unique_ptr<Client>> clients_;
};

}  // namespace qv::bench

#endif  // QV_BENCH_DRIVER_H
