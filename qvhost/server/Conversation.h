// One client's conversation: reads requests, has them executed, sends the answers. It lives until
// the client or the host ends it, and nobody keeps it. At any time it reads, or executes, or
// writes, so that it needs no lock on whatever thread it is.
#ifndef QVHOST_SERVER_CONVERSATION_H
#define QVHOST_SERVER_CONVERSATION_H

#include "server/ClientList.h"
#include "server/ClientSocket.h"
#include "server/ClientThreads.h"
#include "server/PluginService.h"
#include "server/Settings.h"

namespace qv::host {

// Begins it, with a socket of the thread's context. All but the socket must outlive that. Throws
// std::bad_alloc and std::system_error, with the socket closed.
void serveClient(ClientSocket socket, ClientThreads& threads, ClientThread& thread,
                 ClientList& clients, PluginService& service, const ServerSettings& settings);

}  // namespace qv::host

#endif  // QVHOST_SERVER_CONVERSATION_H
