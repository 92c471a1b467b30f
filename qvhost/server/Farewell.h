// The last words to a client.
#ifndef QVHOST_SERVER_FAREWELL_H
#define QVHOST_SERVER_FAREWELL_H

#include <cstdint>
#include <string_view>

namespace qv::host {

// Ends both directions and takes what the client had still sent, since closing a socket with unread
// bytes in it is an error to the other end, which might then not read the last answer.
void sayGoodbye(int socket);

// Tells a client that was not let in why. Never waits: what is sent first fits the socket.
void turnAway(int socket, uint32_t code, std::string_view text);

}  // namespace qv::host

#endif  // QVHOST_SERVER_FAREWELL_H
