// One client's conversation: reads requests, has them executed, sends the answers. It lives until
// the client or the host ends it, and nobody keeps it. At any time it reads, or executes, or
// writes, so that it needs no lock on whatever thread it is.
#ifndef QVHOST_SERVER_CONNECTION_H
#define QVHOST_SERVER_CONNECTION_H

#include "Client.h"
#include "ClientThreads.h"
#include "PluginService.h"
#include "Settings.h"
#include "Socket.h"

namespace qv::host {

// Begins it, with a socket of the thread's context. All but the socket must outlive that. Throws
// std::bad_alloc and std::system_error, with the socket closed.
void serveClient(Socket socket, ClientThreads& threads, ClientThread& thread, ClientList& clients,
                 PluginService& service, const ServerSettings& settings);

}  // namespace qv::host

#endif  // QVHOST_SERVER_CONNECTION_H
