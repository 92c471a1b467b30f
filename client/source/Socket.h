// SPDX-License-Identifier: Apache-2.0

// Connects a stream socket of the Unix domain to the host. The text of an Error is the reason
// alone.
#ifndef QV_CLIENT_SOCKET_H
#define QV_CLIENT_SOCKET_H

#include <QvSystem/Descriptor.h>

#include <cstddef>
#include <optional>
#include <string_view>

#include "Deadline.h"
#include "QvClient.h"

namespace qv::client {

class Socket {
  public:
    // Connects to the host that the options name, and checks the host's user.
    Socket(const ClientOptions& options, const Deadline& deadline);

    int descriptor() const noexcept { return descriptor_.get(); }

    // Tells whether bytes, or the end of the connection, can be received.
    bool isReadable() const;

    // Sends the bytes. Stops early if the host sends something or closes the connection. Returns
    // how many bytes were sent.
    std::size_t send(std::string_view bytes, const Deadline& deadline) const;

    // Sends as many of the bytes as the system takes now. Returns how many, or nothing if the host
    // has closed the connection.
    std::optional<std::size_t> sendSome(std::string_view bytes) const;

    // Receives at most `size` bytes of those that have arrived. Returns how many. Throws Error of
    // kind ConnectionLost if the host has closed the connection.
    std::size_t receiveSome(char* bytes, std::size_t size) const;

    // Returns when bytes, or the end of the connection, can be received.
    void waitUntilReadable(const Deadline& deadline) const;

  private:
    void wait(short& events, const Deadline& deadline) const;

    system::Descriptor descriptor_;
};

}  // namespace qv::client

#endif  // QV_CLIENT_SOCKET_H
