// Clients that each keep one request under way: N connections on one thread. Its own work is in all
// figures alike.
#ifndef QV_BENCH_DRIVER_H
#define QV_BENCH_DRIVER_H

#include <asio/io_context.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace qv::bench {

class Driver {
  public:
    // Connects as many clients as there are lists of requests, which each sends in turn. All have
    // `answer` for an answer; another one makes run() throw std::runtime_error.
    Driver(const std::string& path, std::vector<std::vector<std::string>> requests,
           const std::string& answer);
    ~Driver();

    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;

    // Sends so many requests and returns when all are answered.
    void run(std::int64_t count);

  private:
    class Client;

    asio::io_context context_{1};
    std::int64_t unsent_ = 0;
    std::vector<std::unique_ptr<Client>> clients_;
};

}  // namespace qv::bench

#endif  // QV_BENCH_DRIVER_H
