// A connected stream socket of the Unix domain. Throws Error whose text is the reason alone.
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
    // Connects.
    Socket(const std::string& path, const Deadline& deadline);

    // Whether there is something to receive, or the end.
    bool isReadable() const;

    // Sends all, unless the other side speaks or closes before: returns how much was sent.
    std::size_t send(std::string_view bytes, const Deadline& deadline) const;

    // Receives so many bytes, no fewer.
    void receive(char* bytes, std::size_t size, const Deadline& deadline) const;

  private:
    void wait(short& events, const Deadline& deadline) const;

    system::Descriptor descriptor_;
};

}  // namespace qv::client

#endif  // QV_CLIENT_SOCKET_H
