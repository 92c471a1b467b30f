#include "server/Conversation.h"

#include <QvFrame.h>
#include <fmt/format.h>

#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <asio/post.hpp>
#include <asio/write.hpp>
#include <chrono>
#include <cstddef>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "server/AnswerQueue.h"
#include "server/Farewell.h"
#include "server/FrameReader.h"

namespace qv::host {

namespace {

class Conversation : public std::enable_shared_from_this<Conversation> {
  public:
    Conversation(ClientSocket socket, ClientThreads& threads, ClientThread& thread,
                 ClientList& clients, PluginService& service, const ServerSettings& settings)
        : socket_(std::move(socket)),
          client_(clients, socket_.native_handle()),
          threads_(threads),
          place_(thread),
          service_(service),
          settings_(settings),
          reader_(settings.limits.maxMessage) {
        socket_.non_blocking(true);
    }

    void read();

  private:
    // Carries out a step after a read or a write. If memory runs out for this client, ends the
    // connection, but not the thread. There may be no memory to tell the client.
    template <typename Step>
    void go(Step step) {
        try {
            step();
        } catch (const std::bad_alloc&) {
            sayGoodbye(socket_.native_handle());
        }
    }

    void readMore();
    void execute();
    void answerRequests();
    void write();
    void written();
    void end();
    void refuse(uint32_t code, std::string_view text);

    // The order matters: the client must leave its list before the socket closes.
    ClientSocket socket_;
    ConnectedClient client_;
    ClientThreads& threads_;
    ClientThread::Place place_;
    PluginService& service_;
    const ServerSettings& settings_;
    FrameReader reader_;
    AnswerQueue answers_;
    ConnectedClient::Clock::time_point partSince_;  // when an incomplete request began to arrive
    bool partial_ = false;
    bool refused_ = false;
};

// Returns the end of a time, or the epoch for no bound.
ConnectedClient::Clock::time_point after(ConnectedClient::Clock::time_point begin,
                                         std::chrono::milliseconds time) {
    return time.count() == 0 ? ConnectedClient::Clock::time_point() : begin + time;
}

void Conversation::read() {
    go([this] { readMore(); });
}

void Conversation::readMore() {
    FrameReader::Space space;
    try {
        space = reader_.space();
    } catch (const std::bad_alloc&) {
        refuse(QV_HOST_ERROR_LENGTH, "the host has no memory for a request of this length");
        return;
    }
    if (partial_) {
        client_.reads(after(partSince_, settings_.limits.frameTimeout));
    } else if (settings_.limits.idleTimeout.count() != 0) {
        client_.reads(after(ConnectedClient::Clock::now(), settings_.limits.idleTimeout));
    } else {
        client_.reads({});
    }
    socket_.async_read_some(
        asio::buffer(space.bytes, space.size),
        [self = shared_from_this()](const asio::error_code& error, std::size_t count) {
            self->client_.works();
            self->go([&] {
                if (error) {
                    self->end();
                    return;
                }
                self->reader_.received(count);
                self->execute();
            });
        });
}

void Conversation::execute() {
    const ConnectedClient::Clock::time_point begin = ConnectedClient::Clock::now();
    if (threads_.slowTimes().include(begin)) {
        asio::post(threads_.shared(),
                   [self = shared_from_this()] { self->go([&] { self->answerRequests(); }); });
    } else {
        answerRequests();
        threads_.slowTimes().executed(begin, ConnectedClient::Clock::now());
    }
}

void Conversation::answerRequests() {
    std::optional<Frame> request;
    bool any = false;
    const ConnectedClient::Clock::time_point end = ConnectedClient::Clock::now() + kTurn;
    while (answers_.size() < kBytesOfAnswers && (!any || ConnectedClient::Clock::now() < end) &&
           (request = reader_.next())) {
        service_.answer(*request, answers_);
        any = true;
    }
    if (!request && reader_.tooLong()) {
        refuse(QV_HOST_ERROR_LENGTH,
               fmt::format("the request has {} bytes, and the host takes {}",
                           reader_.header()->length, settings_.limits.maxMessage));
        return;
    }
    if (reader_.empty()) {
        partial_ = false;
    } else if (any || !partial_) {
        partial_ = true;
        partSince_ = ConnectedClient::Clock::now();
    }
    if (any) {
        write();
    } else {
        readMore();
    }
}

void Conversation::write() {
    std::vector<asio::const_buffer> pieces;
    for (const std::string_view piece : answers_.pieces()) {
        pieces.emplace_back(piece.data(), piece.size());
    }
    asio::error_code error;
    // Usually all answers fit the socket, so that nothing has to wait. One piece costs the
    // system less than a list of one piece.
    std::size_t count = pieces.size() == 1 ? socket_.write_some(pieces.front(), error)
                                           : socket_.write_some(pieces, error);
    if (count == answers_.size()) {
        written();
        return;
    }
    if (error && error != asio::error::would_block) {
        end();
        return;
    }
    auto rest = pieces.begin();
    while (count >= rest->size()) {
        count -= rest->size();
        ++rest;
    }
    pieces.erase(pieces.begin(), rest);
    pieces.front() += count;
    client_.writes(after(ConnectedClient::Clock::now(), settings_.limits.frameTimeout));
    asio::async_write(
        socket_, pieces,
        [self = shared_from_this()](const asio::error_code& failure, std::size_t /*count*/) {
            self->client_.works();
            self->go([&] {
                if (failure) {
                    self->end();
                } else {
                    self->written();
                }
            });
        });
}

void Conversation::written() {
    answers_.clear();
    if (refused_) {
        sayGoodbye(socket_.native_handle());
    } else if (reader_.empty()) {
        readMore();
    } else {
        // Posting lets other clients use this thread, and keeps the stack short.
        asio::post(socket_.get_executor(),
                   [self = shared_from_this()] { self->go([&] { self->execute(); }); });
    }
}

void Conversation::end() {
    // Half an answer may have been sent, so nothing else can be said to the client.
    if (answers_.size() != 0) {
        sayGoodbye(socket_.native_handle());
        return;
    }
    switch (client_.ending()) {
        case ConnectedClient::Ending::ByItself:
            return;
        case ConnectedClient::Ending::TimedOut:
            refuse(QV_HOST_ERROR_TIMEOUT,
                   partial_ ? "the request did not arrive in time" : "no request for too long");
            return;
        case ConnectedClient::Ending::Stopped:
            refuse(QV_HOST_ERROR_STOPPING, "the host is about to end");
            return;
    }
}

void Conversation::refuse(uint32_t code, std::string_view text) {
    const std::optional<QvFrameHeader> header = reader_.header();
    refused_ = true;
    answers_.append(code, header ? header->number : 0, text);
    write();
}

}  // namespace

void serveClient(ClientSocket socket, ClientThreads& threads, ClientThread& thread,
                 ClientList& clients, PluginService& service, const ServerSettings& settings) {
    std::make_shared<Conversation>(std::move(socket), threads, thread, clients, service, settings)
        ->read();
}

}  // namespace qv::host
