// One client's conversation: reads requests, has them executed, sends the answers. It lives until
// the client or the host ends it, and nobody keeps it. At any time it reads, or executes, or
// writes, so that it needs no lock; different ones run on as many threads as run the socket's
// context.
#ifndef QVHOST_SERVER_CONNECTION_H
#define QVHOST_SERVER_CONNECTION_H

#include "Client.h"
#include "PluginService.h"
#include "Settings.h"
#include "Socket.h"

namespace qv::host {

// Begins it. All but the socket must outlive the run of the socket's context. Throws
// std::bad_alloc and std::system_error, with the socket closed.
void serveClient(Socket socket, ClientList& clients, PluginService& service,
                 const ServerSettings& settings);

}  // namespace qv::host

#endif  // QVHOST_SERVER_CONNECTION_H
