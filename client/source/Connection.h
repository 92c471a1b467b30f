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

struct Answer {
    uint32_t result = 0;  // a code of QvPlugin.h or QvFrame.h
    std::string bytes;
};

class Connection {
  public:
    // Connects to the host.
    Connection(std::string path, std::chrono::milliseconds timeout);

    // Returns the host's answer, whatever its result is.
    Answer request(uint32_t command, const std::string& input);

  private:
    Answer exchange(uint32_t command, const std::string& input, const Deadline& deadline);
    Answer receiveAnswer(bool isWhollySent, const Deadline& deadline);

    const std::string path_;
    const std::chrono::milliseconds timeout_;
    std::optional<Socket> socket_;
    uint32_t number_ = 0;  // the number of the latest request
};

// Returns the bytes of the answer. Throws Error for any result but QV_OK.
std::string bytesOf(Answer answer);

}  // namespace qv::client

#endif  // QV_CLIENT_CONNECTION_H
