// SPDX-License-Identifier: Apache-2.0

// Ends the connection to a client.
#ifndef QVHOST_SERVER_FAREWELL_H
#define QVHOST_SERVER_FAREWELL_H

#include <cstdint>
#include <string_view>

namespace qv::host {

// Ends both directions and reads what the client has still sent. Closing a socket with unread bytes
// causes an error at the other end, which might then not read the last answer.
void sayGoodbye(int socket);

// Tells a client why it was refused, and ends the connection. Never waits, because the first bytes
// always fit the socket.
void turnAway(int socket, uint32_t code, std::string_view text);

}  // namespace qv::host

#endif  // QVHOST_SERVER_FAREWELL_H
