// SPDX-License-Identifier: Apache-2.0

// Measures Redis, over its Unix socket, with every change flushed to the disk before it is
// acknowledged. Redis has a key for each service.
#ifndef QV_BENCH_REDIS_SUBJECT_H
#define QV_BENCH_REDIS_SUBJECT_H

#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <memory>
#include <string>
#include <vector>

#include "Subject.h"
#include "support/Places.h"

namespace qv::bench {

// Work::Publication is a message to this channel.
constexpr char kChannel[] = "services";

class RedisSubject : public Subject {
  public:
    // Throws std::exception if Redis is not installed or does not start.
    RedisSubject();

    void hold(int count) override;
    std::vector<std::string> requests(Work work, int client) override;
    // Reads answers of one line, and strings.
    std::string ask(const std::string& request) override;
    const std::string& path() const override { return path_; }
    const ServerProcess& process() const override { return process_; }

  private:
    void connect();

    Place place_{Place::Kind::Disk};
    std::string path_ = place_.path("redis.sock");
    ServerProcess process_;
    asio::io_context context_;
    asio::local::stream_protocol::socket socket_{context_};
    int held_ = 0;
};

// Starts Redis. If that fails, says why on standard error, in the name of the benchmark's program,
// and returns null.
std::unique_ptr<RedisSubject> startRedis(const char* program);

}  // namespace qv::bench

#endif  // QV_BENCH_REDIS_SUBJECT_H
