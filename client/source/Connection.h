// Requests and answers as the frames of QvFrame.h, over a connection that is made anew where it has
// to be. Throws Error whose text is the reason alone.
#ifndef QV_CLIENT_CONNECTION_H
#define QV_CLIENT_CONNECTION_H

#include <QvFrame.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "Deadline.h"
#include "Socket.h"

namespace qv::client {

class Connection {
  public:
    // Connects.
    Connection(std::string path, std::chrono::milliseconds timeout);

    // What the host answers; a result other than QV_OK is thrown.
    std::string request(uint32_t command, const std::string& input);

  private:
    std::string exchange(uint32_t command, const std::string& input, const Deadline& deadline);
    std::string receiveAnswer(bool isWhollySent, const Deadline& deadline);

    const std::string path_;
    const std::chrono::milliseconds timeout_;
    std::optional<Socket> socket_;
    uint32_t number_ = 0;  // of the latest request
};

}  // namespace qv::client

#endif  // QV_CLIENT_CONNECTION_H
