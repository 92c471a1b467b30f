// SPDX-License-Identifier: Apache-2.0

// Sends any bytes to the host, also one by one.
#ifndef QVHOST_RAW_CLIENT_H
#define QVHOST_RAW_CLIENT_H

#include <QvSystem/Descriptor.h>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qv::host {

struct RawAnswer {
    uint32_t code = 0;
    uint32_t number = 0;
    std::string bytes;
};

// Returns a header, followed by the bytes, whose number the header tells.
std::string frame(uint32_t code, uint32_t number, const std::string& bytes = "");

class RawClient {
  public:
    // Connects to the socket. Throws std::system_error.
    explicit RawClient(const std::string& path);

    // Uses a socket that is connected.
    explicit RawClient(system::Descriptor connected);

    // Sends all bytes. Returns false if the host has closed the connection.
    bool send(const std::string& bytes) const;

    // Sends as many bytes as fit without waiting. Returns false if none fit.
    bool sendSome(const std::string& bytes) const;

    void endSending() const;

    // Returns the next answer, or nothing at the end of the connection. The connection must not end
    // within an answer.
    std::optional<RawAnswer> receive() const;

    // Returns all answers up to the end of the connection.
    std::vector<RawAnswer> receiveAll() const;

    std::optional<RawAnswer> ask(uint32_t code, uint32_t number,
                                 const std::string& bytes = "") const;

    // Tells whether the host answers a ping.
    bool works() const;

    int descriptor() const { return descriptor_.get(); }

  private:
    bool receive(char* bytes, std::size_t count) const;

    system::Descriptor descriptor_;
};

}  // namespace qv::host

#endif  // QVHOST_RAW_CLIENT_H
