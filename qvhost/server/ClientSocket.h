// SPDX-License-Identifier: Apache-2.0

// Names the type of a client's socket. A socket of any executor would cost more.
//
// Another thread may serve a client for a while. Then what the client sends must not wake the
// client's own thread:
//
//     DetachableSocket socket(std::move(accepted));
//     socket.attached().async_receive(...);         // calls a handler on the client's thread
//     socket.detach();                              // nothing wakes the client's thread
//     socket.receive(bytes, size);                  // on any thread
#ifndef QVHOST_SERVER_CLIENT_SOCKET_H
#define QVHOST_SERVER_CLIENT_SOCKET_H

#include <QvSystem/Descriptor.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <asio/basic_stream_socket.hpp>
#include <asio/error_code.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <cerrno>
#include <cstddef>
#include <optional>
#include <utility>

namespace qv::host {

using ClientSocket =
    asio::basic_stream_socket<asio::local::stream_protocol, asio::io_context::executor_type>;

// A socket that does not block. Only one thread at a time may use it.
class DetachableSocket {
  public:
    // Throws std::system_error.
    explicit DetachableSocket(ClientSocket socket)
        : socket_(std::move(socket)), descriptor_(socket_.native_handle()) {
        socket_.non_blocking(true);
    }

    // Returns the descriptor, which stays the same.
    int descriptor() const noexcept { return descriptor_; }

    // Receives what has arrived. Returns 0 at the end and after an error, and nothing if nothing
    // has arrived.
    std::optional<std::size_t> receive(char* bytes, std::size_t size) const noexcept {
        const ssize_t count = ::recv(descriptor_, bytes, size, 0);
        if (count == -1 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            return std::nullopt;
        }
        return count == -1 ? 0 : static_cast<std::size_t>(count);
    }

    // Takes the socket from the thread. Nothing may wait for the socket.
    void detach() noexcept {
        if (!detached_) {
            asio::error_code ignored;
            detached_.reset(socket_.release(ignored));
        }
    }

    // Returns the socket, and gives it to the thread again if it was detached. Throws
    // std::system_error.
    ClientSocket& attached() {
        if (detached_) {
            socket_.assign(ClientSocket::protocol_type(), descriptor_);
            static_cast<void>(detached_.release());
            socket_.non_blocking(true);
        }
        return socket_;
    }

  private:
    ClientSocket socket_;
    const int descriptor_;
    system::Descriptor detached_;  // what the socket owns otherwise
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_CLIENT_SOCKET_H
