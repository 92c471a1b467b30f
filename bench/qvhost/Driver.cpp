#include "Driver.h"

#include <algorithm>
#include <array>
#include <asio/basic_stream_socket.hpp>
#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/steady_timer.hpp>
#include <asio/system_error.hpp>
#include <asio/write.hpp>
#include <cstddef>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

namespace qv::bench {

namespace {

using Protocol = asio::local::stream_protocol;
using Socket = asio::basic_stream_socket<Protocol, asio::io_context::executor_type>;

constexpr std::size_t kBufferSize = 65'536;

// The number of bytes of an answer that are compared at once.
constexpr std::size_t kCompared = 64;

// Returns the answer that all the requests have. The first two leave the directory as it was.
std::string answerTo(Subject& subject, const std::vector<std::string>& requests) {
    std::string answer = subject.ask(requests.front());
    if (requests.size() > 1) {
        answer = subject.ask(requests[1]);
    }
    return answer;
}

}  // namespace

class Driver::Client {
  public:
    Client(asio::io_context& context, const std::string& path, std::vector<std::string> requests,
           const std::string& answer, std::int64_t& unsent)
        : socket_(context), requests_(std::move(requests)), answer_(answer), unsent_(unsent) {
        socket_.connect(Protocol::endpoint(path));
    }

    void send() {
        if (unsent_ == 0) {
            return;
        }
        --unsent_;
        asio::write(socket_, asio::buffer(requests_[turn_]));
        turn_ = (turn_ + 1) % requests_.size();
        read();
    }

  private:
    void read() {
        socket_.async_read_some(asio::buffer(buffer_),
                                [this](const asio::error_code& error, std::size_t count) {
                                    if (error) {
                                        throw asio::system_error(error, "a server is gone");
                                    }
                                    received(count);
                                });
    }

    void received(std::size_t count) {
        if (count > answer_.size() - received_ ||
            std::memcmp(buffer_.data(), answer_.data() + received_, std::min(count, kCompared)) !=
                0) {
            throw std::runtime_error("a server gave another answer than before");
        }
        received_ += count;
        if (received_ == answer_.size()) {
            received_ = 0;
            send();
        } else {
            read();
        }
    }

    Socket socket_;
    const std::vector<std::string> requests_;
    std::size_t turn_ = 0;
    const std::string answer_;
    std::size_t received_ = 0;
    std::int64_t& unsent_;
    std::array<char, kBufferSize> buffer_ = {};
};

Driver::Driver(Subject& subject, Work work, int clients) {
    std::string answer;
    for (int client = 0; client < clients; ++client) {
        std::vector<std::string> requests = subject.requests(work, client);
        if (client == 0) {
            answer = answerTo(subject, requests);
        }
        clients_.push_back(std::make_unique<Client>(context_, subject.path(), std::move(requests),
                                                    answer, unsent_));
    }
}

Driver::~Driver() = default;

void Driver::run(std::int64_t count) {
    unsent_ = count;
    context_.restart();
    for (const std::unique_ptr<Client>& client : clients_) {
        client->send();
    }
    context_.run();
}

std::int64_t Driver::runFor(std::chrono::steady_clock::duration time) {
    constexpr std::int64_t kEndless = std::numeric_limits<std::int64_t>::max();
    std::int64_t sent = 0;
    asio::steady_timer timer(context_, time);
    timer.async_wait([&](const asio::error_code& /*error*/) {
        sent = kEndless - unsent_;
        unsent_ = 0;
    });
    run(kEndless);
    return sent;
}

}  // namespace qv::bench
