// SPDX-License-Identifier: Apache-2.0

// A client of a host that may be killed at any moment. A connection that ends, within an answer
// also, is no failure of the test.
#ifndef QVHOST_CRASH_CLIENT_H
#define QVHOST_CRASH_CLIENT_H

#include <cstdint>
#include <optional>
#include <string>

#include "qvhost/RawClient.h"

namespace qv::host {

class CrashClient {
  public:
    // Connects to the socket. Throws std::system_error.
    explicit CrashClient(const std::string& socket) : client_(socket) {}

    // Returns false if the connection has ended.
    bool send(uint32_t command, const std::string& input) const;

    // Returns nothing if the connection has ended.
    std::optional<RawAnswer> receive() const;

  private:
    RawClient client_;
};

}  // namespace qv::host

#endif  // QVHOST_CRASH_CLIENT_H
