// Drives N connections on one thread. Each client has one request under way. All figures contain
// the work of the driver itself.
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
    // Connects one client for each list of requests. A client sends the requests of its list in
    // turn. All requests have the same answer, `answer`. Any other answer makes run() throw
    // std::runtime_error.
    Driver(const std::string& path, std::vector<std::vector<std::string>> requests,
           const std::string& answer);
    ~Driver();

    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;

    // Sends `count` requests and returns when all are answered.
    void run(std::int64_t count);

  private:
    class Client;

    asio::io_context context_{1};
    std::int64_t unsent_ = 0;
    std::vector<std::unique_ptr<Client>> clients_;
};

}  // namespace qv::bench

#endif  // QV_BENCH_DRIVER_H
