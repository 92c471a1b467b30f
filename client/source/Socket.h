// Connects a stream socket of the Unix domain. The text of an Error is the reason alone.
#ifndef QV_CLIENT_SOCKET_H
#define QV_CLIENT_SOCKET_H

#include <QvSystem/Descriptor.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "Deadline.h"

namespace qv::client {

class Socket {
  public:
    // Connects to the socket file at the path.
    Socket(const std::string& path, const Deadline& deadline);

    // Tells whether bytes, or the end of the connection, can be received.
    bool isReadable() const;

    // Sends the bytes. Stops early if the host sends something or closes the connection. Returns
    // how many bytes were sent.
    std::size_t send(std::string_view bytes, const Deadline& deadline) const;

    // Receives exactly `size` bytes.
    void receive(char* bytes, std::size_t size, const Deadline& deadline) const;

  private:
    void wait(short& events, const Deadline& deadline) const;

    system::Descriptor descriptor_;
};

}  // namespace qv::client

#endif  // QV_CLIENT_SOCKET_H
