// SPDX-License-Identifier: Apache-2.0

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

using Strings = std::vector<std::string>;

// Returns the answer of each find, or the one answer that all the other requests have.
Strings answersTo(Subject& subject, Work work, const Strings& requests) {
    Strings answers;
    if (work == Work::Find) {
        for (const std::string& request : requests) {
            answers.push_back(subject.ask(request));
        }
    } else {
        answers.push_back(subject.ask(requests.front()));
        // The first two requests leave the directory as it was.
        if (requests.size() > 1) {
            answers.front() = subject.ask(requests[1]);
        }
    }
    return answers;
}

}  // namespace

class Driver::Client {
  public:
    Client(asio::io_context& context, const std::string& path, Strings requests, Strings answers,
           std::int64_t& unsent)
        : socket_(context),
          requests_(std::move(requests)),
          answers_(std::move(answers)),
          unsent_(unsent) {
        socket_.connect(Protocol::endpoint(path));
    }

    void send() {
        if (unsent_ == 0) {
            return;
        }
        --unsent_;
        asio::write(socket_, asio::buffer(requests_[turn_]));
        answer_ = &answers_[turn_ % answers_.size()];
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
        if (count > answer_->size() - received_ ||
            std::memcmp(buffer_.data(), answer_->data() + received_, std::min(count, kCompared)) !=
                0) {
            throw std::runtime_error("a server gave another answer than before");
        }
        received_ += count;
        if (received_ == answer_->size()) {
            received_ = 0;
            send();
        } else {
            read();
        }
    }

    Socket socket_;
    const Strings requests_;
    const Strings answers_;
    std::size_t turn_ = 0;
    const std::string* answer_ = nullptr;  // of the request under way
    std::size_t received_ = 0;
    std::int64_t& unsent_;
    std::array<char, kBufferSize> buffer_ = {};
};

Driver::Driver(Subject& subject, Work work, int clients) {
    Strings answers;
    for (int client = 0; client < clients; ++client) {
        Strings requests = subject.requests(work, client);
        if (client == 0 || work == Work::Find) {
            answers = answersTo(subject, work, requests);
        }
        clients_.push_back(std::make_unique<Client>(context_, subject.path(), std::move(requests),
                                                    answers, unsent_));
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
