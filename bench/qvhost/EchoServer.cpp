// SPDX-License-Identifier: Apache-2.0

// Shows what a server costs that only reads and writes:
//
//     echo_server THREADS
//
// It accepts clients at descriptor 3. A request is a frame whose code is the length of the answer.
// The bytes of the answer do not matter. A client waits for each answer before it sends the next
// request.

#include <QvFrame.h>

#include <array>
#include <asio/basic_socket_acceptor.hpp>
#include <asio/basic_stream_socket.hpp>
#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/write.hpp>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "server/ClientThreads.h"

namespace {

constexpr int kListeningSocket = 3;
constexpr std::size_t kLongestRequest = 16'384;

using Protocol = asio::local::stream_protocol;
using Executor = asio::io_context::executor_type;
using Socket = asio::basic_stream_socket<Protocol, Executor>;

class EchoedClient : public std::enable_shared_from_this<EchoedClient> {
  public:
    explicit EchoedClient(Socket socket) : socket_(std::move(socket)) {
        socket_.non_blocking(true);
    }

    void read() {
        socket_.async_read_some(
            asio::buffer(request_.data() + size_, request_.size() - size_),
            [self = shared_from_this()](const asio::error_code& error, std::size_t count) {
                if (!error) {
                    self->received(count);
                }
            });
    }

  private:
    void received(std::size_t count) {
        size_ += count;
        if (size_ >= QV_FRAME_HEADER_SIZE) {
            const QvFrameHeader header = QvFrameGetHeader(request_.data());
            if (size_ - QV_FRAME_HEADER_SIZE == header.length) {
                size_ = 0;
                answer(header);
                return;
            }
        }
        read();
    }

    void answer(const QvFrameHeader& request) {
        answer_.resize(QV_FRAME_HEADER_SIZE + request.code);
        QvFramePutHeader(answer_.data(), {0, request.code, request.number});
        asio::error_code error;
        const std::size_t written = socket_.write_some(asio::buffer(answer_), error);
        if (error && error != asio::error::would_block) {
            return;
        }
        if (written == answer_.size()) {
            read();
            return;
        }
        asio::async_write(
            socket_, asio::buffer(answer_) + written,
            [self = shared_from_this()](const asio::error_code& failure, std::size_t /*count*/) {
                if (!failure) {
                    self->read();
                }
            });
    }

    Socket socket_;
    std::array<unsigned char, kLongestRequest> request_ = {};
    std::size_t size_ = 0;
    std::vector<unsigned char> answer_;
};

// Serves clients, each of which stays on one thread. The threads run as the host's threads do.
void serve(std::size_t threadCount) {
    asio::io_context own{1};
    asio::basic_socket_acceptor<Protocol, Executor> acceptor(own, Protocol(), kListeningSocket);
    std::deque<qv::host::ClientThread> threads;
    for (std::size_t i = 0; i < threadCount; ++i) {
        threads.emplace_back().start();
    }
    asio::error_code error;
    for (std::size_t client = 0; !error; ++client) {
        Socket socket = acceptor.accept(threads[client % threadCount].context(), error);
        if (!error) {
            std::make_shared<EchoedClient>(std::move(socket))->read();
        }
    }
    for (qv::host::ClientThread& thread : threads) {
        thread.context().stop();
        thread.join();
    }
    throw std::system_error(error, "cannot accept a client");
}

}  // namespace

int main(int argc, char** argv) {
    const int threadCount = argc == 2 ? std::atoi(argv[1]) : 0;
    if (threadCount < 1) {
        static_cast<void>(std::fputs("usage: echo_server THREADS\n", stderr));
        return EXIT_FAILURE;
    }
    try {
        serve(static_cast<std::size_t>(threadCount));
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "echo_server: %s\n", error.what()));
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
