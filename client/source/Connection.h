// Sends requests and receives answers as the frames of QvFrame.h. Connects again when needed. The
// text of an Error is the reason alone; Client says what was tried.
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
    // Connects to the host.
    Connection(std::string path, std::chrono::milliseconds timeout);

    // Returns the bytes of the host's answer. Throws Error for any result but QV_OK.
    std::string request(uint32_t command, const std::string& input);

  private:
    std::string exchange(uint32_t command, const std::string& input, const Deadline& deadline);
    std::string receiveAnswer(bool isWhollySent, const Deadline& deadline);

    const std::string path_;
    const std::chrono::milliseconds timeout_;
    std::optional<Socket> socket_;
    uint32_t number_ = 0;  // the number of the latest request
};

}  // namespace qv::client

#endif  // QV_CLIENT_CONNECTION_H
