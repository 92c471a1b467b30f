// SPDX-License-Identifier: Apache-2.0

// Subscribes clients to a server and reads what the server sends them. All clients share a thread
// and a buffer, and only count what they read, so that they leave the processors to the server.
#ifndef QV_BENCH_SUBSCRIBERS_H
#define QV_BENCH_SUBSCRIBERS_H

#include <QvSystem/Descriptor.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace qv::bench {

struct EventStream {
    // Subscribes.
    std::string request;

    // Returns how many events the bytes hold, and removes these events from the bytes. What is left
    // comes again, in front of the bytes that follow.
    std::function<std::int64_t(std::string_view& bytes)> take;
};

// Returns the events of the resident host. Counts each changed service, and no service of a
// snapshot.
EventStream hostEvents();

// Returns the same, and counts nothing.
EventStream uncountedHostEvents();

// Returns the messages of Redis's kChannel, each of which is as long as this text.
EventStream redisEvents(const std::string& text);

class Subscribers {
  public:
    // Connects the clients, one at least. Returns when the server has answered all of them. Throws
    // std::exception.
    Subscribers(const std::string& path, int count, EventStream stream);
    ~Subscribers();

    Subscribers(const Subscribers&) = delete;
    Subscribers& operator=(const Subscribers&) = delete;

    // Returns how many events all clients have received. Throws std::runtime_error if the server
    // has ended a subscription.
    std::int64_t events() const;

  private:
    struct Client {
        system::Descriptor socket;
        std::string rest;
        bool isAnswered = false;
    };

    void run();
    void read(Client& client);

    const EventStream stream_;
    std::vector<Client> clients_;
    system::Descriptor end_;
    system::Descriptor readable_;
    std::vector<char> buffer_;
    std::size_t answered_ = 0;
    std::promise<void> areAnswered_;
    std::atomic<std::int64_t> events_ = 0;
    std::atomic<bool> hasLost_ = false;
    std::thread thread_;
};

}  // namespace qv::bench

#endif  // QV_BENCH_SUBSCRIBERS_H
