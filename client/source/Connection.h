// SPDX-License-Identifier: Apache-2.0

// Sends requests and receives answers. Connects again when needed. The text of an Error is the
// reason alone; Client says what was tried.
#ifndef QV_CLIENT_CONNECTION_H
#define QV_CLIENT_CONNECTION_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "Answer.h"
#include "Deadline.h"
#include "QvClient.h"
#include "Socket.h"

namespace qv::client {

class Connection {
  public:
    // Connects to the host.
    explicit Connection(ClientOptions options);

    const ClientOptions& options() const { return options_; }

    // Returns the deadline of a call that begins now. The time-out may be kClientTimeout.
    Deadline deadline(std::chrono::milliseconds timeout) const;

    // Returns the host's answer, whatever its result is. The time-out may be kClientTimeout.
    Answer request(uint32_t command, const std::string& input, std::chrono::milliseconds timeout);

  private:
    Answer exchange(const std::string& request, const Deadline& deadline);
    Answer receiveAnswer(bool isWhollySent, const Deadline& deadline);

    const ClientOptions options_;
    std::optional<Socket> socket_;
    uint32_t number_ = 0;  // the number of the latest request
};

}  // namespace qv::client

#endif  // QV_CLIENT_CONNECTION_H
